// The framework around one request: module loading, sign-in, language,
// dispatch and the framework's own part of the answer. entry.cgi and
// zant-webapid both run requests through here.
#pragma once

#include <string>

#include "zant/webapi.h"
#include "zant_host/request_decode.h"

namespace zant_host {

// Appliance directory of the web-API modules.
extern const char kModuleDir[];  // "/usr/zant/lib/webapi"

struct LoadReport {
  int modules = 0;   // libraries loaded
  int methods = 0;   // methods registered
  int failures = 0;  // libraries that could not be used
};

// Loads every "*.so" of `dir` (a host path) in name order with
// dlopen(RTLD_NOW | RTLD_LOCAL) and registers the methods of its
// GetAPITable with the check of the GetAPICheckTable row of the same api,
// version and method. A method without a check row is refused (105).
// Failures are logged; the libraries stay loaded.
LoadReport LoadModules(const std::string& dir);

// Built-in web APIs of the framework ("ZANT.Core.Auth" login and logout).
void RegisterBuiltinAPIs();

// Once per process: the modules of RootPath(kModuleDir), then the built-ins
// (which a module cannot replace), then the parameter guard's rules.
LoadReport InitHost();

// Runs one request: decode, parameter guard, sign-in, language, dispatch. The handler writes
// what it writes to standard output itself; the answer is the framework's
// part, to be sent after those bytes (FormatFrameworkAnswer when the output
// was left on, else nothing).
std::string HandleRequest(const CgiVars& vars, const BodyReader& body, const Limits& limits);

// When ZANT_ROOT is unset or empty and this executable lies at
// <dir> + `installedPath` (its appliance path) with a non-empty <dir>, sets
// ZANT_ROOT to <dir>: a program copied into an appliance root serves that root.
void DefaultRootFromExecutable(const std::string& installedPath);

// Appends a line to the host log RootPath("/var/log/zant-webapi.log");
// errors also go to standard error. Lines that are not errors are dropped
// after SetHostLogInfo(false) (entry.cgi, which would log its module loads
// on every request).
void HostLog(bool error, const char* format, ...) __attribute__((format(printf, 2, 3)));
void SetHostLogInfo(bool enabled);
// Sends every line, not only errors, to standard error as well (the server).
void SetHostLogEcho(bool enabled);
extern const char kHostLogFile[];  // "/var/log/zant-webapi.log"

// A host log line holds at most this many bytes, its newline included; a
// longer message is cut and ends with kHostLogCutMarker.
constexpr size_t kHostLogLineMax = 2048;
extern const char kHostLogCutMarker[];  // " [cut]"
// A message as the log writes it in at most `room` bytes: CR and LF as
// `\r` and `\n`, every other control character as `\xNN`, cut (never
// inside an escape or a UTF-8 character) with the marker when too long.
std::string HostLogText(const std::string& message, size_t room);
// Opens the host log for appending; a new one is made with mode 0640.
int OpenHostLog();

// Error of the built-in sign-in: unknown account, wrong password or
// disabled account (one code, so that a caller cannot tell which).
constexpr int kErrSignInFailed = 400;

}  // namespace zant_host
