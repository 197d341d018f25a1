// syslog() of the host's programs (zant-webapid, entry.cgi): the modules they
// load reach these (the programs export them), and a line goes on to the C
// library's syslog unchanged unless no log daemon listens (see
// zant_host::SystemLogGate). The C library keeps its one connection to a
// daemon it found.
#undef _FORTIFY_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdarg.h>
#include <syslog.h>
#include <time.h>

#include <mutex>

#include "zant_host/system_log.h"

namespace {

using VsyslogFn = void (*)(int, const char*, va_list);
using VsyslogChkFn = void (*)(int, int, const char*, va_list);

long long CoarseMonotonicMs() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Looking for the daemon must not change the errno that a line's "%m" shows.
bool DaemonListens() {
  static std::mutex mutex;
  static zant_host::SystemLogGate gate(_PATH_LOG);
  const int saved = errno;
  bool listens;
  {
    std::lock_guard<std::mutex> lock(mutex);
    listens = gate.DaemonListens(CoarseMonotonicMs());
  }
  errno = saved;
  return listens;
}

template <typename Fn>
Fn Next(const char* name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

void vsyslog(int priority, const char* format, va_list args) {
  static const VsyslogFn real = Next<VsyslogFn>("vsyslog");
  if (real != nullptr && DaemonListens()) real(priority, format, args);
}

void syslog(int priority, const char* format, ...) {
  va_list args;
  va_start(args, format);
  vsyslog(priority, format, args);
  va_end(args);
}

// The same under _FORTIFY_SOURCE.
void __vsyslog_chk(int priority, int flag, const char* format, va_list args) {
  static const VsyslogChkFn real = Next<VsyslogChkFn>("__vsyslog_chk");
  if (real != nullptr && DaemonListens()) real(priority, flag, format, args);
}

void __syslog_chk(int priority, int flag, const char* format, ...) {
  va_list args;
  va_start(args, format);
  __vsyslog_chk(priority, flag, format, args);
  va_end(args);
}

}  // extern "C"
