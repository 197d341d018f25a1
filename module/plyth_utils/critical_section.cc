// The privilege switch around in-process web-API calls: effective uid and
// gid raised to root, then put back. A failed switch is logged and left in
// errno; the request always goes on.
#include <errno.h>
#include <string.h>
#include <syslog.h>
#include <unistd.h>

#include "plyth_utils.h"

namespace {

// The auth facility (32) at the error (3) and informational (6) levels, as
// the appliance's other privilege switches log.
constexpr int kPrioritySwitchFailed = 35;
constexpr int kPrioritySwitched = 38;

// strerror_r comes in two flavours; both end up as a text.
[[maybe_unused]] const char* ErrorText(int rc, const char* buffer) { return rc == 0 ? buffer : "Unknown error"; }
[[maybe_unused]] const char* ErrorText(const char* text, const char* /*buffer*/) { return text; }

enum class IdKind { kUid, kGid };

// One setresuid/setresgid(-1, target, -1). Logs the failure with its error
// text, or a success at the warning priority when `logSuccess`.
bool SetEffectiveId(IdKind kind, unsigned target, const char* source, int line, bool logSuccess) {
  const char* name = kind == IdKind::kUid ? "resuid" : "resgid";
  int rc = kind == IdKind::kUid
               ? setresuid(static_cast<uid_t>(-1), static_cast<uid_t>(target), static_cast<uid_t>(-1))
               : setresgid(static_cast<gid_t>(-1), static_cast<gid_t>(target), static_cast<gid_t>(-1));
  if (rc != 0) {
    int error = errno;
    char buffer[1024];
    memset(buffer, 0, sizeof(buffer));
    const char* text = ErrorText(strerror_r(error, buffer, sizeof(buffer)), buffer);
    syslog(kPrioritySwitchFailed, "%s:%d ERROR: set%s(%d, %d, %d) [%s]", source, line, name, -1,
           static_cast<int>(target), -1, text);
    return false;
  }
  if (logSuccess) {
    syslog(kPrioritySwitched, "%s:%d WARNING: set%s(%d, %d, %d)", source, line, name, -1,
           static_cast<int>(target), -1);
  }
  return true;
}

void Failed(const char* what, const char* source, int line) {
  errno = 1;
  syslog(kPrioritySwitchFailed, "%s:%d ERROR: %s", source, line, what);
}

}  // namespace

void ENTERCriticalSection(PlythSavedIds& saved, const char* source, int line) {
  saved.uid = geteuid();
  saved.gid = getegid();
  // The gid goes first: once the uid is no longer root it could not be raised.
  if (saved.gid != 0 && !SetEffectiveId(IdKind::kGid, 0, source, line, true)) {
    Failed("ENTERCriticalSection", source, line);
    return;
  }
  if (saved.uid != 0 && !SetEffectiveId(IdKind::kUid, 0, source, line, true)) {
    Failed("ENTERCriticalSection", source, line);
    return;
  }
  errno = 0;
}

void LEAVECriticalSection(const PlythSavedIds& saved, const char* source, int line) {
  uid_t uid = geteuid();
  gid_t gid = getegid();
  if (uid == saved.uid && gid == saved.gid) {
    errno = 0;
    return;
  }
  // Root uid is needed to put the gid back, so it is (re)taken first.
  if (uid != saved.uid && !SetEffectiveId(IdKind::kUid, 0, source, line, true)) {
    Failed("LEAVECriticalSection", source, line);
    return;
  }
  if (uid == saved.uid || gid != saved.gid) {
    if (!SetEffectiveId(IdKind::kGid, saved.gid, source, line, saved.gid == 0)) {
      Failed("LEAVECriticalSection", source, line);
      return;
    }
    if (uid == saved.uid) {
      errno = 0;
      return;
    }
  }
  if (!SetEffectiveId(IdKind::kUid, saved.uid, source, line, saved.uid == 0)) {
    Failed("LEAVECriticalSection", source, line);
    return;
  }
  errno = 0;
}
