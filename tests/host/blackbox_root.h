// What the black-box tests share: a throw-away appliance root made by
// scripts/mkroot, and commands run by the shell with their output in files.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace blackbox {

inline std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

struct Run {
  int status;  // exit code, or 128 + signal
  std::string out, err;
};

// Runs `command` with its output in files of `dir`.
inline Run RunCommand(const std::string& command, const std::string& dir) {
  const int status = std::system((command + " >" + dir + "/run.out 2>" + dir + "/run.err").c_str());
  return Run{WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), Slurp(dir + "/run.out"),
             Slurp(dir + "/run.err")};
}

// A fresh root under /tmp made by `mkroot` with `options`.
inline std::string MakeRoot(const std::string& name, const std::string& mkroot, const std::string& options) {
  std::string dir = "/tmp/" + name + "-XXXXXX";
  if (mkdtemp(&dir[0]) == nullptr) throw std::runtime_error("mkdtemp");
  const Run made = RunCommand(mkroot + " " + options + " '" + dir + "' </dev/null", dir);
  if (made.status != 0) throw std::runtime_error("mkroot: " + made.out + made.err);
  return dir;
}

// Removes `root` unless the environment variable `keep` is set.
inline void RemoveRoot(const std::string& root, const char* keep) {
  if (std::getenv(keep) == nullptr) (void)std::system(("rm -rf '" + root + "'").c_str());
}

}  // namespace blackbox
