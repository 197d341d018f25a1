#include "blackbox_support.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace host_blackbox {

namespace {

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void Spit(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

void Shell(const std::string& command) {
  if (system(command.c_str()) != 0) throw std::runtime_error("failed: " + command);
}

}  // namespace

TestRoot::TestRoot() {
  char dir[] = "/tmp/host-blackbox-XXXXXX";
  if (mkdtemp(dir) == nullptr) throw std::runtime_error("mkdtemp");
  path_ = dir;
  Shell(std::string(HOST_MKROOT) + " --with-fixture --stage '" + HOST_STAGE_DIR + "' '" + path_ +
        "' >/dev/null");
  Shell("cp '" + std::string(HOST_TESTMOD) + "' '" + path_ + "/usr/zant/lib/webapi/'");
}

TestRoot::~TestRoot() {
  if (getenv("HOST_KEEP_ROOT") == nullptr) Shell("rm -rf '" + path_ + "'");
}

void TestRoot::Write(const std::string& appliancePath, const std::string& content) const {
  Shell("mkdir -p \"$(dirname '" + path_ + appliancePath + "')\"");
  Spit(path_ + appliancePath, content);
}

std::string TestRoot::Read(const std::string& appliancePath) const {
  return Slurp(path_ + appliancePath);
}

CgiRun Run(const std::string& program, const Env& env, const std::string& body) {
  char dir[] = "/tmp/host-run-XXXXXX";
  if (mkdtemp(dir) == nullptr) throw std::runtime_error("mkdtemp");
  const std::string in = std::string(dir) + "/in";
  const std::string out = std::string(dir) + "/out";
  const std::string err = std::string(dir) + "/err";
  Spit(in, body);

  std::vector<std::string> entries;
  for (const auto& var : env) entries.push_back(var.first + "=" + var.second);
  std::vector<char*> envp;
  for (std::string& entry : entries) envp.push_back(&entry[0]);
  envp.push_back(nullptr);

  pid_t pid = fork();
  if (pid == 0) {
    int fdIn = open(in.c_str(), O_RDONLY);
    int fdOut = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    int fdErr = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(fdIn, 0);
    dup2(fdOut, 1);
    dup2(fdErr, 2);
    char* argv[] = {const_cast<char*>(program.c_str()), nullptr};
    execve(program.c_str(), argv, envp.data());
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  CgiRun run;
  run.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  run.out = Slurp(out);
  run.err = Slurp(err);
  Shell(std::string("rm -rf '") + dir + "'");
  return run;
}

std::string JsonAnswer(const std::string& json) {
  return "Content-Type: application/json; charset=\"UTF-8\"\r\n\r\n" + json;
}

}  // namespace host_blackbox
