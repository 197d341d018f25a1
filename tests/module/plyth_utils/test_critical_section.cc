// The privilege switch against fake ids: the set calls made, the system-log
// lines (priority and text) they leave, errno, and the ids afterwards.
#include <errno.h>

#include <utility>

#include "../module_testing.h"
#include "plyth_utils.h"

namespace {

const char kSource[] = "server/ui-web/webapi/plyth/shard/init";

SyslogLine Line(int priority, const std::string& text) { return Logged(priority, kSource, 64, text); }
SyslogLine Raised(const std::string& call) { return Line(38, "WARNING: " + call); }
SyslogLine Refused(const std::string& call) { return Line(35, "ERROR: " + call + " [Operation not permitted]"); }
const std::string kGid0 = "setresgid(-1, 0, -1)", kUid0 = "setresuid(-1, 0, -1)";
const SyslogLine kEnterFailed = Line(35, "ERROR: ENTERCriticalSection");

// Ids before, refused calls, and what entering and then leaving leave
// behind: leaving after entering restores the ids before.
struct Row {
  const char* description;
  uid_t uid, uidInside = 0;
  gid_t gid, gidInside = 0;
  bool failUid = false, failGid = false;
  Lines enterLog = {}, leaveLog = {};
  int enterErrno = 0;
};

const Row kRows[] = {
    {.description = "root: no call", .uid = 0, .gid = 0, .failUid = true, .failGid = true},
    // Putting back 1000 and 100 is not logged; retaking root is.
    {.description = "user", .uid = 1000, .gid = 100, .enterLog = {Raised(kGid0), Raised(kUid0)},
     .leaveLog = {Raised(kUid0)}},
    {.description = "root uid", .uid = 0, .gid = 100, .enterLog = {Raised(kGid0)}},
    {.description = "root gid", .uid = 1000, .gid = 0, .enterLog = {Raised(kUid0)}, .leaveLog = {Raised(kUid0)}},
    {.description = "gid refused", .uid = 1000, .uidInside = 1000, .gid = 100, .gidInside = 100, .failGid = true,
     .enterLog = {Refused(kGid0), kEnterFailed}, .enterErrno = 1},
    {.description = "uid refused", .uid = 1000, .uidInside = 1000, .gid = 100, .failUid = true,
     .enterLog = {Raised(kGid0), Refused(kUid0), kEnterFailed}, .enterErrno = 1},
    {.description = "root gid, uid refused", .uid = 1000, .uidInside = 1000, .gid = 0, .failUid = true,
     .enterLog = {Refused(kUid0), kEnterFailed}, .enterErrno = 1}};

// Fake ids whose set calls are refused as the row asks.
struct RefusingIds : FakeIdentity {
  RefusingIds(uid_t uid, gid_t gid, bool failUid, bool failGid) : FakeIdentity(uid, gid) {
    FailSetresuid(failUid);
    FailSetresgid(failGid);
  }
};

TEST(CriticalSection, RaisesThenRestores) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.description);
    const RefusingIds identity(row.uid, row.gid, row.failUid, row.failGid);
    SyslogCapture log;
    PlythSavedIds saved{};
    errno = 42;
    ENTERCriticalSection(saved, kSource, 64);
    EXPECT_EQ(errno, row.enterErrno);
    EXPECT_EQ(log.Lines(), row.enterLog);
    EXPECT_EQ(std::make_pair(identity.Euid(), identity.Egid()), std::make_pair(row.uidInside, row.gidInside));
    log.Clear();
    errno = 42;
    LEAVECriticalSection(saved, kSource, 64);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(log.Lines(), row.leaveLog);
    EXPECT_EQ(std::make_pair(identity.Euid(), identity.Egid()), std::make_pair(row.uid, row.gid));
  }
}

// Leaving from ids other than those entering left: a put-back to root is
// logged, and each refused call ends in the LEAVE line.
TEST(CriticalSection, LeavingPutsTheSavedIdsBackOrSaysWhereItStopped) {
  const SyslogLine kLeaveFailed = Line(35, "ERROR: LEAVECriticalSection");
  const std::string kGid100 = "setresgid(-1, 100, -1)";
  struct Leave { const char* description; PlythSavedIds saved; uid_t uidNow = 0; gid_t gidNow = 0;
                 bool failUid = false, failGid = false; Lines log; int errnoAfter = 1; } rows[] = {
      {.description = "back to root", .saved = {0, 0}, .uidNow = 1000, .gidNow = 100,
       .log = {Raised(kUid0), Raised(kGid0), Raised(kUid0)}, .errnoAfter = 0},
      {.description = "retaking root refused", .saved = {1000, 100}, .failUid = true, .log = {Refused(kUid0), kLeaveFailed}},
      {.description = "gid refused", .saved = {1000, 100}, .failGid = true,
       .log = {Raised(kUid0), Refused(kGid100), kLeaveFailed}},
      {.description = "gid refused, same uid", .saved = {0, 100}, .failGid = true, .log = {Refused(kGid100), kLeaveFailed}}};
  for (const Leave& row : rows) {
    SCOPED_TRACE(row.description);
    const RefusingIds identity(row.uidNow, row.gidNow, row.failUid, row.failGid);
    SyslogCapture log;
    errno = 42;
    LEAVECriticalSection(row.saved, kSource, 64);
    EXPECT_EQ(log.Lines(), row.log);
    EXPECT_EQ(errno, row.errnoAfter);
  }
}

}  // namespace
