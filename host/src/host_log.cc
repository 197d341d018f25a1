#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <string>

#include "zant/appliance.h"
#include "zant_host/host.h"

namespace zant_host {

const char kHostLogFile[] = "/var/log/zant-webapi.log";
const char kHostLogCutMarker[] = " [cut]";

namespace {
bool gInfo = true;
bool gEcho = false;

std::string Format(const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  char small[512];
  int size = vsnprintf(small, sizeof(small), format, copy);
  va_end(copy);
  if (size < 0) return std::string();
  if (static_cast<size_t>(size) < sizeof(small)) return std::string(small, static_cast<size_t>(size));
  std::string text(static_cast<size_t>(size) + 1, '\0');
  vsnprintf(&text[0], text.size(), format, args);
  text.resize(static_cast<size_t>(size));
  return text;
}

// How one byte of a message is written: a control character never reaches
// the file as itself, so no value can end a line or start a forged one.
std::string EscapedByte(unsigned char c) {
  if (c == '\r') return "\\r";
  if (c == '\n') return "\\n";
  if (c < 0x20 || c == 0x7f) {
    char hex[5];
    snprintf(hex, sizeof(hex), "\\x%02x", c);
    return hex;
  }
  return std::string(1, static_cast<char>(c));
}

// Drops a UTF-8 sequence left incomplete by a cut at the end of `text`.
void DropPartialCharacter(std::string* text) {
  size_t back = 0;
  while (back < text->size() && back < 4 &&
         (static_cast<unsigned char>((*text)[text->size() - 1 - back]) & 0xc0) == 0x80) {
    ++back;
  }
  if (back == text->size()) return;
  const unsigned char lead = static_cast<unsigned char>((*text)[text->size() - 1 - back]);
  const size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : lead >= 0xc0 ? 2 : 1;
  if (length > back + 1) text->resize(text->size() - 1 - back);
}

}  // namespace

int OpenHostLog() {
  const std::string path = ZANT::RootPath(kHostLogFile);
  for (;;) {
    int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd >= 0 || errno != ENOENT) return fd;
    fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, 0640);
    if (fd >= 0) {
      // A new log is 0640 whatever the umask: values in it are for the service's group only.
      int ignored = fchmod(fd, 0640);
      (void)ignored;
      return fd;
    }
    if (errno != EEXIST) return -1;
  }
}

std::string HostLogText(const std::string& message, size_t room) {
  std::string text;
  for (unsigned char c : message) text += EscapedByte(c);
  if (text.size() <= room) return text;
  const size_t marker = sizeof(kHostLogCutMarker) - 1;
  text.clear();
  for (unsigned char c : message) {
    const std::string piece = EscapedByte(c);
    if (text.size() + piece.size() + marker > room) break;
    text += piece;
  }
  DropPartialCharacter(&text);
  return text + kHostLogCutMarker;
}

void SetHostLogInfo(bool enabled) { gInfo = enabled; }
void SetHostLogEcho(bool enabled) { gEcho = enabled; }

void HostLog(bool error, const char* format, ...) {
  if (!error && !gInfo) return;
  va_list args;
  va_start(args, format);
  const std::string message = Format(format, args);
  va_end(args);

  char stamp[32];
  time_t now = time(nullptr);
  struct tm utc;
  gmtime_r(&now, &utc);
  strftime(stamp, sizeof(stamp), "%Y-%m-%dT%H:%M:%SZ", &utc);

  const std::string head = std::string(stamp) + " zant-webapi[" + std::to_string(getpid()) + "]: " +
                           (error ? "error: " : "");
  const std::string line = head + HostLogText(message, kHostLogLineMax - head.size() - 1) + "\n";
  // One write per line with O_APPEND keeps lines of concurrent workers whole.
  int fd = OpenHostLog();
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
