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
const char kGid100[] = "setresgid(-1, 100, -1)";
const SyslogLine kEnterFailed = Line(35, "ERROR: ENTERCriticalSection"),
                 kLeaveFailed = Line(35, "ERROR: LEAVECriticalSection");

// One call from the ids before, with some set calls refused: entering (and
// then leaving, which must restore the ids before), or leaving only with
// the given saved ids.
struct Row {
  const char* description;
  uid_t uid;
  gid_t gid;
  bool failUid = false, failGid = false;
  bool leaveOnly = false;
  PlythSavedIds saved = {};
  Lines log = {};
  int errnoAfter = 0;
  uid_t uidAfter = 0;
  gid_t gidAfter = 0;
  Lines leaveLog = {};  // after entering
};

const Row kRows[] = {
    {.description = "root: no call", .uid = 0, .gid = 0, .failUid = true, .failGid = true},
    // Putting back 1000 and 100 is not logged; retaking root is.
    {.description = "user", .uid = 1000, .gid = 100, .log = {Raised(kGid0), Raised(kUid0)},
     .leaveLog = {Raised(kUid0)}},
    {.description = "root uid", .uid = 0, .gid = 100, .log = {Raised(kGid0)}},
    {.description = "root gid", .uid = 1000, .gid = 0, .log = {Raised(kUid0)}, .leaveLog = {Raised(kUid0)}},
    {.description = "gid refused", .uid = 1000, .gid = 100, .failGid = true, .log = {Refused(kGid0), kEnterFailed},
     .errnoAfter = 1, .uidAfter = 1000, .gidAfter = 100},
    {.description = "uid refused", .uid = 1000, .gid = 100, .failUid = true,
     .log = {Raised(kGid0), Refused(kUid0), kEnterFailed}, .errnoAfter = 1, .uidAfter = 1000},
    {.description = "root gid, uid refused", .uid = 1000, .gid = 0, .failUid = true,
     .log = {Refused(kUid0), kEnterFailed}, .errnoAfter = 1, .uidAfter = 1000},
    {.description = "leave unchanged: no call", .uid = 1000, .gid = 100, .failUid = true, .failGid = true,
     .leaveOnly = true, .saved = {1000, 100}, .uidAfter = 1000, .gidAfter = 100},
    {.description = "leave back to root", .uid = 1000, .gid = 100, .leaveOnly = true, .saved = {0, 0},
     .log = {Raised(kUid0), Raised(kGid0), Raised(kUid0)}},
    {.description = "leave, retaking root refused", .uid = 0, .gid = 0, .failUid = true, .leaveOnly = true,
     .saved = {1000, 100}, .log = {Refused(kUid0), kLeaveFailed}, .errnoAfter = 1},
    {.description = "leave, gid refused", .uid = 0, .gid = 0, .failGid = true, .leaveOnly = true,
     .saved = {1000, 100}, .log = {Raised(kUid0), Refused(kGid100), kLeaveFailed}, .errnoAfter = 1},
    {.description = "leave, gid refused, same uid", .uid = 0, .gid = 0, .failGid = true, .leaveOnly = true,
     .saved = {0, 100}, .log = {Refused(kGid100), kLeaveFailed}, .errnoAfter = 1}};

TEST(CriticalSection, RaisesThenRestores) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.description);
    FakeIdentity identity(row.uid, row.gid);
    identity.FailSetresuid(row.failUid);
    identity.FailSetresgid(row.failGid);
    SyslogCapture log;
    PlythSavedIds saved = row.saved;
    errno = 42;
    if (row.leaveOnly) LEAVECriticalSection(saved, kSource, 64);
    else ENTERCriticalSection(saved, kSource, 64);
    EXPECT_EQ(errno, row.errnoAfter);
    EXPECT_EQ(log.Lines(), row.log);
    EXPECT_EQ(identity.Euid(), row.uidAfter);
    EXPECT_EQ(identity.Egid(), row.gidAfter);
    if (row.leaveOnly) continue;
    log.Clear();
    errno = 42;
    LEAVECriticalSection(saved, kSource, 64);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(log.Lines(), row.leaveLog);
    EXPECT_EQ(identity.Euid(), row.uid);
    EXPECT_EQ(identity.Egid(), row.gid);
  }
}

}  // namespace
