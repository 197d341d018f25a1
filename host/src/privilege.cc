#include "zant_host/privilege.h"

#include <unistd.h>

namespace zant_host {

// Raises only when the saved ids allow it (zant-webapid started as root);
// otherwise the process runs as it is and nothing changes.
ScopedRootIds::ScopedRootIds() {
  uid_t ruid, euid, suid;
  gid_t rgid, egid, sgid;
  if (getresuid(&ruid, &euid, &suid) != 0 || getresgid(&rgid, &egid, &sgid) != 0) return;
  if (euid == 0 || suid != 0) return;
  if (setresuid(-1, 0, -1) != 0) return;
  raised_ = true;
  uid_ = euid;
  gid_ = egid;
  if (setresgid(-1, 0, -1) != 0) gid_ = static_cast<gid_t>(-1);
}

ScopedRootIds::~ScopedRootIds() {
  if (!raised_) return;
  if (gid_ != static_cast<gid_t>(-1) && setresgid(-1, gid_, -1) != 0) _exit(1);
  // Failing to drop again would leave the process root: better to end it.
  if (setresuid(-1, uid_, -1) != 0) _exit(1);
}

}  // namespace zant_host
