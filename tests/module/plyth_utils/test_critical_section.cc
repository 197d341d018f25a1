// The privilege switch against fake ids: the set calls made, the system-log
// lines (priority and text) they leave, errno, and the ids afterwards.
#include <errno.h>

#include "../module_testing.h"
#include "plyth_utils.h"

namespace {

const char kSource[] = "server/ui-web/webapi/plyth/shard/init";

SyslogLine Line(int priority, const std::string& text) { return Logged(priority, kSource, 64, text); }
SyslogLine Raised(const std::string& call) { return Line(38, "WARNING: " + call); }
SyslogLine Refused(const std::string& call) {
  return Line(35, "ERROR: " + call + " [Operation not permitted]");
}
const std::string kGid0 = "setresgid(-1, 0, -1)", kUid0 = "setresuid(-1, 0, -1)";
const SyslogLine kEnterFailed = Line(35, "ERROR: ENTERCriticalSection"),
                 kLeaveFailed = Line(35, "ERROR: LEAVECriticalSection");

// Ids before, refused calls, and what entering and leaving leave behind.
struct RoundTrip {
  const char* description;
  uid_t uid;
  gid_t gid;
  bool failUid = false, failGid = false;
  Lines enterLog = {};
  int enterErrno = 0;
  uid_t uidInside = 0;
  gid_t gidInside = 0;
  Lines leaveLog = {};
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
  EXPECT_EQ(log.Lines(), c.enterLog);
  EXPECT_EQ(identity.Euid(), c.uidInside);
  EXPECT_EQ(identity.Egid(), c.gidInside);
  log.Clear();
  errno = 42;
  LEAVECriticalSection(saved, kSource, 64);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(log.Lines(), c.leaveLog);
  EXPECT_EQ(identity.Euid(), c.uid);
  EXPECT_EQ(identity.Egid(), c.gid);
}

INSTANTIATE_TEST_SUITE_P(Rows, EnterLeave, ::testing::ValuesIn(std::vector<RoundTrip>{
    {.description = "root: no call", .uid = 0, .gid = 0, .failUid = true, .failGid = true},
    // Putting back 1000 and 100 is not logged; retaking root is.
    {.description = "user", .uid = 1000, .gid = 100, .enterLog = {Raised(kGid0), Raised(kUid0)},
     .leaveLog = {Raised(kUid0)}},
    {.description = "root uid", .uid = 0, .gid = 100, .enterLog = {Raised(kGid0)}},
    {.description = "root gid", .uid = 1000, .gid = 0, .enterLog = {Raised(kUid0)}, .leaveLog = {Raised(kUid0)}},
    {.description = "gid refused", .uid = 1000, .gid = 100, .failGid = true, .enterLog = {Refused(kGid0), kEnterFailed},
     .enterErrno = 1, .uidInside = 1000, .gidInside = 100},
    {.description = "uid refused", .uid = 1000, .gid = 100, .failUid = true,
     .enterLog = {Raised(kGid0), Refused(kUid0), kEnterFailed}, .enterErrno = 1, .uidInside = 1000},
    {.description = "root gid, uid refused", .uid = 1000, .gid = 0, .failUid = true,
     .enterLog = {Refused(kUid0), kEnterFailed}, .enterErrno = 1, .uidInside = 1000}}));

struct Leave {
  const char* description;
  PlythSavedIds saved;
  uid_t uidNow;
  gid_t gidNow;
  bool failUid = false, failGid = false;
  Lines log = {};
  int errnoAfter = 0;
  uid_t uidAfter = 0;
  gid_t gidAfter = 0;
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
  EXPECT_EQ(log.Lines(), c.log);
  EXPECT_EQ(errno, c.errnoAfter);
  EXPECT_EQ(identity.Euid(), c.uidAfter);
  EXPECT_EQ(identity.Egid(), c.gidAfter);
}

const char kGid100[] = "setresgid(-1, 100, -1)";

INSTANTIATE_TEST_SUITE_P(Rows, LeaveOnly, ::testing::ValuesIn(std::vector<Leave>{
    {.description = "unchanged: no call", .saved = {1000, 100}, .uidNow = 1000, .gidNow = 100, .failUid = true,
     .failGid = true, .uidAfter = 1000, .gidAfter = 100},
    {.description = "back to root", .saved = {0, 0}, .uidNow = 1000, .gidNow = 100,
     .log = {Raised(kUid0), Raised(kGid0), Raised(kUid0)}},
    {.description = "retaking root refused", .saved = {1000, 100}, .uidNow = 0, .gidNow = 0, .failUid = true,
     .log = {Refused(kUid0), kLeaveFailed}, .errnoAfter = 1},
    {.description = "gid refused", .saved = {1000, 100}, .uidNow = 0, .gidNow = 0, .failGid = true,
     .log = {Raised(kUid0), Refused(kGid100), kLeaveFailed}, .errnoAfter = 1},
    {.description = "gid refused, same uid", .saved = {0, 100}, .uidNow = 0, .gidNow = 0, .failGid = true,
     .log = {Refused(kGid100), kLeaveFailed}, .errnoAfter = 1}}));

}  // namespace
