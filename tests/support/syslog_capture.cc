// syslog() of the test executables. Module objects linked into a test, the
// platform library and a module loaded with dlopen all reach this one
// (test executables export their symbols); while no capture lives, lines go
// on to the C library's syslog.
#include <dlfcn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <syslog.h>

#include <map>
#include <mutex>

#include "harness.h"

namespace plyth_test {

namespace {

struct SyslogState {
  std::mutex mutex;
  std::vector<SyslogLine> lines;
  // Each live capture sees the lines from its own start on.
  std::map<const SyslogCapture*, size_t> starts;
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

using VsyslogFn = void (*)(int, const char*, va_list);

void RealVsyslog(int priority, const char* format, va_list args) {
  static VsyslogFn real = reinterpret_cast<VsyslogFn>(dlsym(RTLD_NEXT, "vsyslog"));
  if (real != nullptr) real(priority, format, args);
}

void Route(int priority, const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  std::string text = Format(format, copy);
  va_end(copy);
  {
    SyslogState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    if (!state.starts.empty()) return state.lines.push_back(SyslogLine{priority, std::move(text)});
  }
  RealVsyslog(priority, format, args);
}

}  // namespace

SyslogCapture::SyslogCapture() { Clear(); }

SyslogCapture::~SyslogCapture() {
  SyslogState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  state.starts.erase(this);
  if (state.starts.empty()) state.lines.clear();
}

std::vector<SyslogLine> SyslogCapture::Lines() const {
  SyslogState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  auto start = state.starts.find(this);
  size_t from = start == state.starts.end() ? state.lines.size() : start->second;
  return std::vector<SyslogLine>(state.lines.begin() + static_cast<long>(from), state.lines.end());
}

void SyslogCapture::Clear() {
  SyslogState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  state.starts[this] = state.lines.size();
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
