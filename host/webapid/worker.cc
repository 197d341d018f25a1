// A worker: loads the modules once, then serves one request at a time.
#include <fcgiapp.h>
#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "webapid.h"
#include "zant/file_cache.h"
#include "zant_host/host.h"

extern char** environ;

namespace webapid {

namespace {

volatile sig_atomic_t gStop = 0;
Shared* gShared = nullptr;
int gListenFd = -1;
pid_t gMaster = 0;

// A worker whose master is gone shuts the socket down itself, so that every
// worker drains what is queued and ends.
void OnStop(int) {
  gStop = 1;
  if (getppid() != gMaster && gShared != nullptr) {
    gShared->stopping.store(1);
    shutdown(gListenFd, SHUT_RD);
  }
}

void SetStopSignalsBlocked(bool blocked) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  sigprocmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &set, nullptr);
}

void InstallSignals() {
  struct sigaction action;
  memset(&action, 0, sizeof(action));
  action.sa_handler = OnStop;
  action.sa_flags = SA_RESTART;  // a stop must not break a read of the request in hand
  sigemptyset(&action.sa_mask);
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);
  signal(SIGHUP, SIG_IGN);
  signal(SIGCHLD, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  SetStopSignalsBlocked(true);
}

bool DropIds(const ServiceIdentity& identity) {
  if (!identity.drop) return true;
  // Saved ids stay 0: the modules' critical sections raise their effective ids.
  return setgroups(1, &identity.gid) == 0 && setresgid(-1, identity.gid, 0) == 0 &&
         setresuid(-1, identity.uid, 0) == 0;
}

// A handler that left its ids raised must not leak them into the next request.
void RestoreIds(const ServiceIdentity& identity) {
  if (!identity.drop || (geteuid() == identity.uid && getegid() == identity.gid)) return;
  if (seteuid(0) != 0 || setresgid(-1, identity.gid, 0) != 0 ||
      setresuid(-1, identity.uid, 0) != 0) {
    zant_host::HostLog(true, "cannot put the service ids back: %s", strerror(errno));
    _exit(1);
  }
}

bool IsRequestVariable(const std::string& name) {
  return name == "USERNAME" || zant_host::IsServerVariable(name);
}

// Removes every CGI variable (and "USERNAME") from the process environment.
void ClearRequestEnvironment() {
  std::vector<std::string> names;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const char* eq = strchr(*entry, '=');
    if (eq == nullptr) continue;
    std::string name(*entry, static_cast<size_t>(eq - *entry));
    if (IsRequestVariable(name)) names.push_back(name);
  }
  for (const std::string& name : names) unsetenv(name.c_str());
}

void SetRequestEnvironment(const zant_host::CgiVars& vars) {
  for (const auto& var : vars) setenv(var.first.c_str(), var.second.c_str(), 0);
}

// Collects what the handler writes to fd 1 (stdio, iostreams, raw writes).
class StdoutCapture {
 public:
  StdoutCapture() {
    fd_ = memfd_create("zant-webapid-stdout", MFD_CLOEXEC);
    saved_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  }
  bool Ok() const { return fd_ >= 0 && saved_ >= 0; }

  void Begin() {
    std::cout.flush();
    fflush(stdout);
    if (ftruncate(fd_, 0) != 0 || lseek(fd_, 0, SEEK_SET) != 0) return;
    dup2(fd_, STDOUT_FILENO);
  }

  std::string End() {
    std::cout.flush();
    fflush(stdout);
    clearerr(stdout);
    dup2(saved_, STDOUT_FILENO);
    struct stat st;
    if (fstat(fd_, &st) != 0 || st.st_size <= 0) return std::string();
    std::string bytes(static_cast<size_t>(st.st_size), '\0');
    size_t done = 0;
    while (done < bytes.size()) {
      ssize_t n = pread(fd_, &bytes[done], bytes.size() - done, static_cast<off_t>(done));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      done += static_cast<size_t>(n);
    }
    bytes.resize(done);
    return bytes;
  }

 private:
  int fd_ = -1;
  int saved_ = -1;
};

void Serve(FCGX_Request* request, StdoutCapture* capture, const zant_host::Limits& limits) {
  const zant_host::CgiVars vars = zant_host::ServerVarsFromEnviron(request->envp);
  SetRequestEnvironment(vars);
  FCGX_Stream* in = request->in;
  zant_host::BodyReader reader = [in](char* buffer, size_t size) -> long {
    int chunk = size > (1u << 20) ? (1 << 20) : static_cast<int>(size);
    return FCGX_GetStr(buffer, chunk, in);
  };
  capture->Begin();
  const std::string answer = zant_host::HandleRequest(vars, reader, limits);
  const std::string written = capture->End();
  FCGX_PutStr(written.data(), static_cast<int>(written.size()), request->out);
  FCGX_PutStr(answer.data(), static_cast<int>(answer.size()), request->out);
  // Whatever of the body was not read: the web server is still sending it.
  char sink[8192];
  while (FCGX_GetStr(sink, sizeof(sink), in) > 0) {
  }
}

void NoteRequest(Slot* slot, FCGX_Request* request) {
  const char* uri = FCGX_GetParam("REQUEST_URI", request->envp);
  snprintf(slot->uri, sizeof(slot->uri), "%s", uri != nullptr ? uri : "");
  slot->busySince.store(MonotonicMs());
}

}  // namespace

void RunWorker(int listenFd, int slotIndex, Shared* shared, const ServiceIdentity& identity,
               pid_t master) {
  gShared = shared;
  gListenFd = listenFd;
  gMaster = master;
  Slot* slot = &shared->slots[slotIndex];
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  InstallSignals();
  if (getppid() != master) _exit(0);

  int devnull = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (devnull >= 0) {
    dup2(devnull, STDIN_FILENO);
    close(devnull);
  }
  if (!DropIds(identity)) {
    zant_host::HostLog(true, "worker %d cannot switch to uid %d gid %d: %s", slotIndex,
                       static_cast<int>(identity.uid), static_cast<int>(identity.gid), strerror(errno));
    _exit(1);
  }
  ClearRequestEnvironment();
  const mode_t startUmask = umask(022);
  umask(startUmask);
  int cwd = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);

  // A worker answers request after request: the files every request reads are
  // looked at on disk at most once a second (a change is seen within that).
  ZANT::FileCache::SetRevalidateSeconds(1);
  zant_host::LoadReport report = zant_host::InitHost();
  zant_host::HostLog(false, "worker %d ready: %d modules, %d methods, %d failed", slotIndex,
                     report.modules, report.methods, report.failures);

  StdoutCapture capture;
  if (!capture.Ok() || FCGX_Init() != 0) {
    zant_host::HostLog(true, "worker %d cannot set up its output", slotIndex);
    _exit(1);
  }
  FCGX_Request request;
  FCGX_InitRequest(&request, listenFd, 0);
  const zant_host::Limits limits;

  for (;;) {
    // Told to stop on its own (not by a stopping master): end now. A stopping
    // master has shut the socket down; accepting drains what is queued.
    if (gStop && !shared->stopping.load()) break;
    SetStopSignalsBlocked(false);
    int rc = FCGX_Accept_r(&request);
    SetStopSignalsBlocked(true);
    if (rc < 0) {
      if (gStop || shared->stopping.load()) break;
      usleep(100 * 1000);
      continue;
    }
    NoteRequest(slot, &request);
    Serve(&request, &capture, limits);
    FCGX_Finish_r(&request);
    slot->served.fetch_add(1);
    slot->busySince.store(0);

    ClearRequestEnvironment();
    if (cwd >= 0 && fchdir(cwd) != 0) _exit(1);
    umask(startUmask);
    RestoreIds(identity);
  }
  _exit(0);
}

}  // namespace webapid
