// entry.cgi: the framework as a CGI program. One request from the
// environment and standard input, the answer on standard output, exit 0.
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iostream>

#include "zant_host/host.h"

extern char** environ;

namespace {

void WriteAll(int fd, const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    done += static_cast<size_t>(n);
  }
}

long ReadStdin(char* buffer, size_t size) {
  for (;;) {
    ssize_t n = read(STDIN_FILENO, buffer, size);
    if (n < 0 && errno == EINTR) continue;
    return static_cast<long>(n);
  }
}

}  // namespace

int main() {
  // A web server that stops reading must not turn into a non-zero exit.
  signal(SIGPIPE, SIG_IGN);
  zant_host::DefaultRootFromExecutable("/usr/zant/zantman/webapi/entry.cgi");
  zant_host::SetHostLogInfo(false);
  const zant_host::CgiVars vars = zant_host::ServerVarsFromEnviron(environ);
  zant_host::InitHost();
  const std::string answer = zant_host::HandleRequest(vars, ReadStdin, zant_host::Limits());
  // What the handler wrote itself goes first.
  std::cout.flush();
  fflush(stdout);
  WriteAll(STDOUT_FILENO, answer);
  return 0;
}
