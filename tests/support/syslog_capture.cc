// syslog() of the test executables. Module objects linked into a test, the
// platform library and a module loaded with dlopen all reach this one
// (test executables export their symbols); while no capture lives, lines go
// on to the C library's syslog.
#include <dlfcn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <syslog.h>

#include <mutex>

#include "harness.h"

namespace plyth_test {

namespace {

struct SyslogState {
  std::mutex mutex;
  std::vector<SyslogLine> lines;  // since the oldest live capture started
  int captures = 0;
};

SyslogState& State() {
  static SyslogState* state = new SyslogState;  // outlives static destructors
  return *state;
}

std::string Format(const char* format, va_list args) {
  char* text = nullptr;
  if (format == nullptr || vasprintf(&text, format, args) < 0) return std::string();
  std::string line(text);
  free(text);
  return line;
}

void Route(int priority, const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  std::string text = Format(format, copy);
  va_end(copy);
  {
    std::lock_guard<std::mutex> lock(State().mutex);
    if (State().captures > 0) return State().lines.push_back(SyslogLine{priority, std::move(text)});
  }
  using VsyslogFn = void (*)(int, const char*, va_list);
  static VsyslogFn real = reinterpret_cast<VsyslogFn>(dlsym(RTLD_NEXT, "vsyslog"));
  if (real != nullptr) real(priority, format, args);
}

}  // namespace

SyslogCapture::SyslogCapture() {
  std::lock_guard<std::mutex> lock(State().mutex);
  ++State().captures;
  start_ = State().lines.size();
}

SyslogCapture::~SyslogCapture() {
  std::lock_guard<std::mutex> lock(State().mutex);
  if (--State().captures == 0) State().lines.clear();
}

std::vector<SyslogLine> SyslogCapture::Lines() const {
  std::lock_guard<std::mutex> lock(State().mutex);
  return std::vector<SyslogLine>(State().lines.begin() + static_cast<long>(start_), State().lines.end());
}

void SyslogCapture::Clear() {
  std::lock_guard<std::mutex> lock(State().mutex);
  start_ = State().lines.size();
}

}  // namespace plyth_test

extern "C" void vsyslog(int priority, const char* format, va_list args) {
  plyth_test::Route(priority, format, args);
}

extern "C" void syslog(int priority, const char* format, ...) {
  va_list args;
  va_start(args, format);
  plyth_test::Route(priority, format, args);
  va_end(args);
}

// The fortified forms that _FORTIFY_SOURCE builds call instead.
extern "C" void __vsyslog_chk(int priority, int /*flag*/, const char* format, va_list args) {
  plyth_test::Route(priority, format, args);
}

extern "C" void __syslog_chk(int priority, int /*flag*/, const char* format, ...) {
  va_list args;
  va_start(args, format);
  plyth_test::Route(priority, format, args);
  va_end(args);
}
