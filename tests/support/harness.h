// Test support: the platform in memory around a handler. A throw-away
// appliance root, fake web APIs in the in-process runner, captured standard
// output, system log and logger, and a process that looks root or not.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include <json/json.h>

#include "zant/webapi.h"

namespace plyth_test {

// A fresh directory that ZANT_ROOT names while the object lives.
class ApplianceRoot {
 public:
  ApplianceRoot();
  ~ApplianceRoot();
  ApplianceRoot(const ApplianceRoot&) = delete;
  ApplianceRoot& operator=(const ApplianceRoot&) = delete;

  // `appliancePath` is absolute on the appliance ("/etc/zantinfo.conf");
  // parent directories are made as needed.
  void WriteFile(const std::string& appliancePath, const std::string& content) const;
  std::string ReadFile(const std::string& appliancePath) const;  // empty when missing
  void MakeDir(const std::string& appliancePath) const;
  void Remove(const std::string& appliancePath) const;  // file or tree
  std::string Host(const std::string& appliancePath) const { return path_ + appliancePath; }

 private:
  std::string path_;
  std::string previous_;
  bool hadPrevious_ = false;
};

// One line sent to syslog().
struct SyslogLine {
  int priority;
  std::string text;
  bool operator==(const SyslogLine& o) const { return priority == o.priority && text == o.text; }
};
// Collects what syslog() receives while the object lives (nothing reaches
// the real system log meanwhile).
class SyslogCapture {
 public:
  SyslogCapture();
  ~SyslogCapture();
  std::vector<SyslogLine> Lines() const;
  void Clear();

 private:
  size_t start_ = 0;  // the first line this capture answers
};

// Makes geteuid/getegid/setresuid/setresgid act on fake ids while the object
// lives; the real ids never change.
class FakeIdentity {
 public:
  FakeIdentity(uid_t euid, gid_t egid);
  ~FakeIdentity();
  void FailSetresuid(bool fail);  // set calls fail with EPERM
  void FailSetresgid(bool fail);
  uid_t Euid() const;
  gid_t Egid() const;
};

// Collects what the process writes to its standard output (fd 1 and stdio).
class StdoutCapture {
 public:
  StdoutCapture();
  ~StdoutCapture();
  std::string Take();  // stops capturing and answers the bytes

 private:
  int savedFd_ = -1;
  int tempFd_ = -1;
  bool active_ = false;
};

// A web API of the in-process runner answered by a test function.
struct FakeCall {
  Json::Value params;
  std::string user;
};
class FakeAPI {
 public:
  using Answer = std::function<Json::Value(const Json::Value& params, const std::string& user)>;
  FakeAPI(const std::string& api, int version, const std::string& method);
  ~FakeAPI();
  void AlwaysReturn(const Json::Value& result);  // a whole result object
  void Respond(Answer answer);
  const std::vector<FakeCall>& Calls() const { return calls_; }

  // Result-object builders.
  static Json::Value Success(const Json::Value& data);
  static Json::Value SuccessWithoutData();
  static Json::Value Failure(int code);
  static Json::Value FailureWithoutError();

 private:
  friend struct FakeAPIRegistry;
  std::string api_;
  int version_;
  std::string method_;
  Answer answer_;
  std::vector<FakeCall> calls_;
};

// Everything a handler produced.
struct HandlerRun {
  std::string stdoutBytes;        // what the handler wrote itself
  std::string answer;             // what the framework sends: stdoutBytes, then its own
                                  // answer when output was left on
  ZANT::APIResponse response;
  std::vector<SyslogLine> syslog;
  std::vector<std::string> logger;  // lines the sync logger wrote
};

// JSON text as a value; text that does not parse fails the test.
Json::Value Parse(const std::string& text);

// Runs `handler` on `request` (made current, as the framework does) and
// collects its output. Needs a live ApplianceRoot.
// Without a live FakeIdentity the process looks root (ids 0) during the run.
HandlerRun RunHandler(ZANT::APIHandler handler, ZANT::APIRequest& request);

// Splits "A\r\nB\r\n\r\nbody" at the first blank line.
void SplitHeaders(const std::string& answer, std::vector<std::string>& headerLines, std::string& body);
// What follows the first blank line.
std::string BodyOf(const std::string& answer);

}  // namespace plyth_test
