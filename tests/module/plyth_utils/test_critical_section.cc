// The privilege switch against fake ids: the set calls made, the system-log
// lines (priority and text) they leave, errno, and the ids afterwards.
#include <errno.h>

#include "../module_testing.h"
#include "plyth_utils.h"

namespace {

const char kSource[] = "server/ui-web/webapi/plyth/shard/init";

// "g100" is setresgid(-1, 100, -1).
std::string Call(const std::string& token) {
  return std::string("setres") + token[0] + "id(-1, " + token.substr(1) + ", -1)";
}
// "u0" logged as raised, "!u0" as refused, "ENTER"/"LEAVE" as the failed switch.
Lines Log(const std::string& text) {
  Lines lines;
  auto add = [&lines](int priority, const std::string& s) {
    lines.push_back(Logged(priority, kSource, 64, s));
  };
  for (const std::string& t : Tokens(text)) {
    if (t == "ENTER" || t == "LEAVE") add(35, "ERROR: " + t + "CriticalSection");
    else if (t[0] == '!') add(35, "ERROR: " + Call(t.substr(1)) + " [Operation not permitted]");
    else add(38, "WARNING: " + Call(t));
  }
  return lines;
}

struct RoundTrip {
  const char* description;
  uid_t uid;
  gid_t gid;
  bool failUid, failGid;
  const char* enterLog;
  int enterErrno;
  uid_t uidInside;
  gid_t gidInside;
  const char* leaveLog;
};

class EnterLeave : public ::testing::TestWithParam<RoundTrip> {};

TEST_P(EnterLeave, RaisesThenRestores) {
  const RoundTrip& c = GetParam();
  FakeIdentity identity(c.uid, c.gid);
  identity.FailSetresuid(c.failUid);
  identity.FailSetresgid(c.failGid);
  SyslogCapture log;
  PlythSavedIds saved{};
  errno = 42;
  ENTERCriticalSection(saved, kSource, 64);
  EXPECT_EQ(errno, c.enterErrno);
  EXPECT_EQ(log.Lines(), Log(c.enterLog));
  EXPECT_EQ(identity.Euid(), c.uidInside);
  EXPECT_EQ(identity.Egid(), c.gidInside);
  log.Clear();
  errno = 42;
  LEAVECriticalSection(saved, kSource, 64);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(log.Lines(), Log(c.leaveLog));
  EXPECT_EQ(identity.Euid(), c.uid);
  EXPECT_EQ(identity.Egid(), c.gid);
}

INSTANTIATE_TEST_SUITE_P(Rows, EnterLeave, ::testing::Values(
    RoundTrip{"root: no call", 0, 0, true, true, "", 0, 0, 0, ""},
    // Putting back 1000 and 100 is not logged; retaking root is.
    RoundTrip{"user", 1000, 100, false, false, "g0 u0", 0, 0, 0, "u0"},
    RoundTrip{"root uid", 0, 100, false, false, "g0", 0, 0, 0, ""},
    RoundTrip{"root gid", 1000, 0, false, false, "u0", 0, 0, 0, "u0"},
    RoundTrip{"gid refused", 1000, 100, false, true, "!g0 ENTER", 1, 1000, 100, ""},
    RoundTrip{"uid refused", 1000, 100, true, false, "g0 !u0 ENTER", 1, 1000, 0, ""},
    RoundTrip{"root gid, uid refused", 1000, 0, true, false, "!u0 ENTER", 1, 1000, 0, ""}));

struct Leave {
  const char* description;
  PlythSavedIds saved;
  uid_t uidNow;
  gid_t gidNow;
  bool failUid, failGid;
  const char* log;
  int errnoAfter;
  uid_t uidAfter;
  gid_t gidAfter;
};

class LeaveOnly : public ::testing::TestWithParam<Leave> {};

TEST_P(LeaveOnly, PutsSavedIdsBack) {
  const Leave& c = GetParam();
  FakeIdentity identity(c.uidNow, c.gidNow);
  identity.FailSetresuid(c.failUid);
  identity.FailSetresgid(c.failGid);
  SyslogCapture log;
  errno = 42;
  LEAVECriticalSection(c.saved, kSource, 64);
  EXPECT_EQ(log.Lines(), Log(c.log));
  EXPECT_EQ(errno, c.errnoAfter);
  EXPECT_EQ(identity.Euid(), c.uidAfter);
  EXPECT_EQ(identity.Egid(), c.gidAfter);
}

INSTANTIATE_TEST_SUITE_P(Rows, LeaveOnly, ::testing::Values(
    Leave{"unchanged: no call", {1000, 100}, 1000, 100, true, true, "", 0, 1000, 100},
    Leave{"back to root", {0, 0}, 1000, 100, false, false, "u0 g0 u0", 0, 0, 0},
    Leave{"retaking root refused", {1000, 100}, 0, 0, true, false, "!u0 LEAVE", 1, 0, 0},
    Leave{"gid refused", {1000, 100}, 0, 0, false, true, "u0 !g100 LEAVE", 1, 0, 0},
    Leave{"gid refused, same uid", {0, 100}, 0, 0, false, true, "!g100 LEAVE", 1, 0, 0}));

}  // namespace
