// The ceiling of the load test: a pre-forked FastCGI responder that does no
// work at all. It answers each request with bytes captured from the real
// server for the same address, so nginx and wrk see the same answers.
//
//   trivial_fcgi SOCKET WORKERS URI=FILE...
//
// FILE holds the CGI output (headers, blank line, body) answered for a
// request whose REQUEST_URI is URI (split at the last "=": URIs hold "=" in
// their queries); any other address gets a 404.
#include <fcgiapp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

namespace {

std::map<std::string, std::string> LoadAnswers(int argc, char** argv) {
  std::map<std::string, std::string> answers;
  for (int i = 3; i < argc; ++i) {
    const char* eq = strrchr(argv[i], '=');
    if (eq == nullptr) continue;
    std::ifstream in(eq + 1, std::ios::binary);
    answers[std::string(argv[i], static_cast<size_t>(eq - argv[i]))] =
        std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  return answers;
}

void Work(int listenFd, const std::map<std::string, std::string>& answers) {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  const std::string notFound = "Status: 404 Not Found\r\nContent-Type: text/plain\r\n\r\n";
  FCGX_Request request;
  FCGX_InitRequest(&request, listenFd, 0);
  while (FCGX_Accept_r(&request) >= 0) {
    const char* uri = FCGX_GetParam("REQUEST_URI", request.envp);
    auto found = answers.find(uri != nullptr ? uri : "");
    const std::string& answer = found != answers.end() ? found->second : notFound;
    FCGX_PutStr(answer.data(), static_cast<int>(answer.size()), request.out);
    FCGX_Finish_r(&request);
  }
  _exit(0);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    fprintf(stderr, "usage: trivial_fcgi SOCKET WORKERS URI=FILE...\n");
    return 2;
  }
  const auto answers = LoadAnswers(argc, argv);
  if (FCGX_Init() != 0) return 1;
  unlink(argv[1]);
  int listenFd = FCGX_OpenSocket(argv[1], 128);
  if (listenFd < 0) return 1;
  chmod(argv[1], 0666);
  const int workers = atoi(argv[2]) > 0 ? atoi(argv[2]) : 1;
  for (int i = 0; i < workers; ++i) {
    if (fork() == 0) Work(listenFd, answers);
  }
  // Ends with its workers: SIGTERM to this process reaches them through
  // their parent-death signal.
  signal(SIGTERM, [](int) { _exit(0); });
  while (wait(nullptr) > 0) {
  }
  return 0;
}
