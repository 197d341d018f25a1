// Whether a line for the system log is worth handing to the C library.
#pragma once

namespace zant_host {

// With no log daemon listening (a machine without /dev/log, the demo), the C
// library opens a socket, fails to connect and closes it again for every
// line, only to drop the line. The host's programs ask this first: a daemon
// is looked for at most once a second, and while none listens a line is
// dropped here, as the C library would drop it. The lines themselves are
// never touched: they go to the C library's syslog as they are.
class SystemLogGate {
 public:
  explicit SystemLogGate(const char* socketPath) : path_(socketPath) {}

  // True when a daemon listened at the last look; looks again when that
  // look is a second old (nowMs: a monotonic clock in milliseconds).
  bool DaemonListens(long long nowMs);

 private:
  const char* path_;
  bool looked_ = false;
  bool listens_ = false;
  long long lookedAtMs_ = 0;
};

}  // namespace zant_host
