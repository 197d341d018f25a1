#include "zant_host/system_log.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace zant_host {

namespace {

// A datagram socket that connects, or a stream socket behind the path (the
// C library tries both): someone reads the lines.
bool Listens(const char* path) {
  struct sockaddr_un address;
  memset(&address, 0, sizeof(address));
  address.sun_family = AF_UNIX;
  if (strlen(path) >= sizeof(address.sun_path)) return false;
  strcpy(address.sun_path, path);
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  const bool connected = connect(fd, reinterpret_cast<struct sockaddr*>(&address), sizeof(address)) == 0;
  const bool streamDaemon = !connected && errno == EPROTOTYPE;
  close(fd);
  return connected || streamDaemon;
}

}  // namespace

bool SystemLogGate::DaemonListens(long long nowMs) {
  if (looked_ && nowMs - lookedAtMs_ < 1000) return listens_;
  looked_ = true;
  lookedAtMs_ = nowMs;
  listens_ = Listens(path_);
  return listens_;
}

}  // namespace zant_host
