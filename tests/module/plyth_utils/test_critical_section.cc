// The privilege switch against fake ids: which set calls are made, which
// system-log lines (priority and text) they leave, and the ids afterwards.
#include <errno.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "harness.h"
#include "plyth_utils.h"

namespace plyth_test {
void PrintTo(const SyslogLine& line, std::ostream* os) { *os << line.priority << " " << line.text; }
}  // namespace plyth_test

namespace {

using plyth_test::FakeIdentity;
using plyth_test::SyslogCapture;
using plyth_test::SyslogLine;

const char kSource[] = "server/ui-web/webapi/plyth/shard/init";
constexpr int kLine = 64;

std::string At(const std::string& text) { return std::string(kSource) + ":64 " + text; }
SyslogLine Raised(const char* call) { return {38, At(std::string("WARNING: ") + call)}; }
SyslogLine Refused(const char* call) {
  return {35, At(std::string("ERROR: ") + call + " [Operation not permitted]")};
}
const SyslogLine kEnterFailed = {35, At("ERROR: ENTERCriticalSection")};
const SyslogLine kLeaveFailed = {35, At("ERROR: LEAVECriticalSection")};

struct RoundTrip {
  const char* description;
  uid_t uid;
  gid_t gid;
  bool failUid;
  bool failGid;
  std::vector<SyslogLine> enterLines;
  int enterErrno;
  std::vector<SyslogLine> leaveLines;  // after the enter lines
  uid_t uidInside;
  gid_t gidInside;
};
void PrintTo(const RoundTrip& c, std::ostream* os) { *os << c.description; }

class EnterLeaveTest : public ::testing::TestWithParam<RoundTrip> {};

TEST_P(EnterLeaveTest, RaisesThenRestores) {
  const RoundTrip& c = GetParam();
  FakeIdentity identity(c.uid, c.gid);
  identity.FailSetresuid(c.failUid);
  identity.FailSetresgid(c.failGid);
  SyslogCapture log;

  PlythSavedIds saved{};
  errno = 42;
  ENTERCriticalSection(saved, kSource, kLine);
  EXPECT_EQ(errno, c.enterErrno);
  EXPECT_EQ(log.Lines(), c.enterLines);
  EXPECT_EQ(identity.Euid(), c.uidInside);
  EXPECT_EQ(identity.Egid(), c.gidInside);
  log.Clear();

  errno = 42;
  LEAVECriticalSection(saved, kSource, kLine);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(log.Lines(), c.leaveLines);
  EXPECT_EQ(identity.Euid(), c.uid);
  EXPECT_EQ(identity.Egid(), c.gid);
}

INSTANTIATE_TEST_SUITE_P(
    Table, EnterLeaveTest,
    ::testing::Values(
        RoundTrip{"root stays silent", 0, 0, false, false, {}, 0, {}, 0, 0},
        RoundTrip{"root even when set calls would fail", 0, 0, true, true, {}, 0, {}, 0, 0},
        RoundTrip{"user and group raised and restored",
                  1000, 100, false, false,
                  {Raised("setresgid(-1, 0, -1)"), Raised("setresuid(-1, 0, -1)")}, 0,
                  // restoring uid 1000 and gid 100 is not worth a line; retaking root is
                  {Raised("setresuid(-1, 0, -1)")}, 0, 0},
        RoundTrip{"root uid, other gid", 0, 100, false, false,
                  {Raised("setresgid(-1, 0, -1)")}, 0, {}, 0, 0},
        RoundTrip{"other uid, root gid", 1000, 0, false, false,
                  {Raised("setresuid(-1, 0, -1)")}, 0,
                  {Raised("setresuid(-1, 0, -1)")}, 0, 0},
        RoundTrip{"setresgid refused: uid never tried", 1000, 100, false, true,
                  {Refused("setresgid(-1, 0, -1)"), kEnterFailed}, 1, {}, 1000, 100},
        RoundTrip{"setresuid refused after gid raised", 1000, 100, true, false,
                  {Raised("setresgid(-1, 0, -1)"), Refused("setresuid(-1, 0, -1)"), kEnterFailed}, 1,
                  {}, 1000, 0},
        RoundTrip{"both refused", 1000, 100, true, true,
                  {Refused("setresgid(-1, 0, -1)"), kEnterFailed}, 1, {}, 1000, 100},
        RoundTrip{"root uid, gid refused", 0, 100, false, true,
                  {Refused("setresgid(-1, 0, -1)"), kEnterFailed}, 1, {}, 0, 100},
        RoundTrip{"root gid, uid refused", 1000, 0, true, false,
                  {Refused("setresuid(-1, 0, -1)"), kEnterFailed}, 1, {}, 1000, 0}),
    [](const ::testing::TestParamInfo<RoundTrip>& info) { return std::to_string(info.index); });

TEST(EnterLeave, SetCallsInOrder) {
  FakeIdentity identity(1000, 100);
  SyslogCapture log;
  PlythSavedIds saved{};
  ENTERCriticalSection(saved, kSource, kLine);
  LEAVECriticalSection(saved, kSource, kLine);
  EXPECT_EQ(identity.Calls(), (std::vector<std::string>{
                                  "setresgid(-1, 0, -1)", "setresuid(-1, 0, -1)",
                                  "setresuid(-1, 0, -1)", "setresgid(-1, 100, -1)",
                                  "setresuid(-1, 1000, -1)"}));
}

// Leaving when the ids inside differ from the saved ones in other ways
// (a called API changed them, or a set call fails on the way back).
struct Leave {
  const char* description;
  PlythSavedIds saved;
  uid_t uidNow;
  gid_t gidNow;
  bool failUid;
  bool failGid;
  std::vector<std::string> calls;
  std::vector<SyslogLine> lines;
  int errnoAfter;
  uid_t uidAfter;
  gid_t gidAfter;
};
void PrintTo(const Leave& c, std::ostream* os) { *os << c.description; }

class LeaveTest : public ::testing::TestWithParam<Leave> {};

TEST_P(LeaveTest, PutsSavedIdsBack) {
  const Leave& c = GetParam();
  FakeIdentity identity(c.uidNow, c.gidNow);
  identity.FailSetresuid(c.failUid);
  identity.FailSetresgid(c.failGid);
  SyslogCapture log;

  errno = 42;
  LEAVECriticalSection(c.saved, kSource, kLine);
  EXPECT_EQ(identity.Calls(), c.calls);
  EXPECT_EQ(log.Lines(), c.lines);
  EXPECT_EQ(errno, c.errnoAfter);
  EXPECT_EQ(identity.Euid(), c.uidAfter);
  EXPECT_EQ(identity.Egid(), c.gidAfter);
}

INSTANTIATE_TEST_SUITE_P(
    Table, LeaveTest,
    ::testing::Values(
        Leave{"unchanged ids: no call", {1000, 100}, 1000, 100, true, true, {}, {}, 0, 1000, 100},
        Leave{"only the gid differs", {1000, 100}, 1000, 0, false, false,
              {"setresgid(-1, 100, -1)"}, {}, 0, 1000, 100},
        Leave{"back to root everywhere logs each call", {0, 0}, 1000, 100, false, false,
              {"setresuid(-1, 0, -1)", "setresgid(-1, 0, -1)", "setresuid(-1, 0, -1)"},
              {Raised("setresuid(-1, 0, -1)"), Raised("setresgid(-1, 0, -1)"),
               Raised("setresuid(-1, 0, -1)")},
              0, 0, 0},
        Leave{"uid differs, gid same: gid untouched", {1000, 100}, 0, 100, false, false,
              {"setresuid(-1, 0, -1)", "setresuid(-1, 1000, -1)"},
              {Raised("setresuid(-1, 0, -1)")}, 0, 1000, 100},
        Leave{"retaking root refused", {1000, 100}, 0, 0, true, false,
              {"setresuid(-1, 0, -1)"},
              {Refused("setresuid(-1, 0, -1)"), kLeaveFailed}, 1, 0, 0},
        Leave{"restoring the gid refused", {1000, 100}, 0, 0, false, true,
              {"setresuid(-1, 0, -1)", "setresgid(-1, 100, -1)"},
              {Raised("setresuid(-1, 0, -1)"), Refused("setresgid(-1, 100, -1)"), kLeaveFailed},
              1, 0, 0},
        Leave{"restoring the gid refused, uid unchanged", {0, 100}, 0, 0, false, true,
              {"setresgid(-1, 100, -1)"},
              {Refused("setresgid(-1, 100, -1)"), kLeaveFailed}, 1, 0, 0}),
    [](const ::testing::TestParamInfo<Leave>& info) { return std::to_string(info.index); });

}  // namespace
