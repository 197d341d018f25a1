#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <string>

#include "zant/appliance.h"
#include "zant_host/host.h"

namespace zant_host {

const char kHostLogFile[] = "/var/log/zant-webapi.log";

namespace {
bool gInfo = true;
bool gEcho = false;
}  // namespace

void SetHostLogInfo(bool enabled) { gInfo = enabled; }
void SetHostLogEcho(bool enabled) { gEcho = enabled; }

void HostLog(bool error, const char* format, ...) {
  if (!error && !gInfo) return;
  char message[2048];
  va_list args;
  va_start(args, format);
  vsnprintf(message, sizeof(message), format, args);
  va_end(args);

  char stamp[32];
  time_t now = time(nullptr);
  struct tm utc;
  gmtime_r(&now, &utc);
  strftime(stamp, sizeof(stamp), "%Y-%m-%dT%H:%M:%SZ", &utc);

  std::string line = std::string(stamp) + " zant-webapi[" + std::to_string(getpid()) + "]: " +
                     (error ? "error: " : "") + message + "\n";
  // One write per line with O_APPEND keeps lines of concurrent workers whole.
  int fd = open(ZANT::RootPath(kHostLogFile).c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
  if (fd >= 0) {
    ssize_t ignored = write(fd, line.data(), line.size());
    (void)ignored;
    close(fd);
  }
  if (error || gEcho) {
    ssize_t ignored = write(STDERR_FILENO, line.data(), line.size());
    (void)ignored;
  }
}

}  // namespace zant_host
