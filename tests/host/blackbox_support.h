// Running the real entry.cgi of a throw-away appliance root.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace host_blackbox {

struct CgiRun {
  int exitStatus = -1;  // exit code, or 128 + signal
  std::string out;
  std::string err;
};

using Env = std::vector<std::pair<std::string, std::string>>;

// A fresh appliance root made by scripts/mkroot --with-fixture, with the
// test module installed. Removed by the destructor.
class TestRoot {
 public:
  TestRoot();
  ~TestRoot();
  const std::string& Path() const { return path_; }
  std::string EntryCgi() const { return path_ + "/usr/zant/zantman/webapi/entry.cgi"; }
  void Write(const std::string& appliancePath, const std::string& content) const;
  std::string Read(const std::string& appliancePath) const;

 private:
  std::string path_;
};

// Runs `program` with exactly `env` (nothing inherited) and `body` on stdin.
CgiRun Run(const std::string& program, const Env& env, const std::string& body = "");

// The exact bytes of a framework JSON answer with `json` as its body.
std::string JsonAnswer(const std::string& json);

}  // namespace host_blackbox
