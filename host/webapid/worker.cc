// A worker: loads the modules once, then serves one request at a time.
#include <fcgiapp.h>
#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "webapid.h"
#include "zant/file_cache.h"
#include "zant_host/host.h"

extern char** environ;

namespace webapid {

namespace {

volatile sig_atomic_t gStop = 0;
volatile sig_atomic_t gOrphan = 0;
volatile sig_atomic_t gReadExpired = 0;
volatile sig_atomic_t gConnectionFd = -1;  // the connection whose request is being read
Shared* gShared = nullptr;
int gListenFd = -1;
pid_t gMaster = 0;
int gOrphanLimitSeconds = 0;
timer_t gReadTimer;    // SIGALRM: the request's parameters are late
timer_t gOrphanTimer;  // SIGKILL: a worker without a master ran out of time

void ArmTimer(timer_t timer, int seconds) {
  struct itimerspec when;
  memset(&when, 0, sizeof(when));
  when.it_value.tv_sec = seconds;  // 0 disarms
  timer_settime(timer, 0, &when, nullptr);
}

// The parent-death signal: never blocked, so that it also reaches a worker
// in the middle of a request (only flags, the socket and a timer change).
constexpr int kMasterGoneSignal = SIGUSR1;

// A worker whose master is gone shuts the socket down itself, so that every
// worker drains what is queued and ends. Nobody watches its request time any
// more: the kill timer does.
void OnMasterGone(int) {
  if (getppid() == gMaster) return;  // not from the kernel: the master lives
  gStop = 1;
  if (gOrphan || gShared == nullptr) return;
  gOrphan = 1;
  gShared->stopping.store(1);
  shutdown(gListenFd, SHUT_RD);
  ArmTimer(gOrphanTimer, gOrphanLimitSeconds);
}

void OnStop(int) {
  gStop = 1;
  OnMasterGone(0);
}

// The reader blocked in libfcgi sees the end of the connection and gives up.
void OnReadDeadline(int) {
  gReadExpired = 1;
  const int fd = gConnectionFd;
  if (fd >= 0) shutdown(fd, SHUT_RD);
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
  action.sa_handler = OnMasterGone;
  sigaction(kMasterGoneSignal, &action, nullptr);
  action.sa_handler = OnReadDeadline;
  action.sa_flags = 0;  // a blocked read of the parameters returns at once
  sigaction(SIGALRM, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);
  signal(SIGHUP, SIG_IGN);
  signal(SIGCHLD, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  SetStopSignalsBlocked(true);
}

bool MakeTimers() {
  struct sigevent event;
  memset(&event, 0, sizeof(event));
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = SIGALRM;
  if (timer_create(CLOCK_MONOTONIC, &event, &gReadTimer) != 0) return false;
  event.sigev_signo = SIGKILL;
  return timer_create(CLOCK_MONOTONIC, &event, &gOrphanTimer) == 0;
}

// Asks for kMasterGoneSignal when the master dies; false when it is gone already.
// Any change of the process's ids clears the request, so it is made again
// after the switch to the service user and after every request (a handler
// may have raised its effective ids).
bool WatchMaster(pid_t master) {
  prctl(PR_SET_PDEATHSIG, kMasterGoneSignal);
  return getppid() == master;
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

// Passes what the handler writes to fd 1 (stdio, iostreams, raw writes) on
// to the web server while the handler runs: fd 1 is, for the worker's whole
// life, the writing end of one pipe that one thread of the worker reads. A
// download or an archive goes out as it is written instead of piling up in
// memory, and every piece sent counts as progress, so that an answer that
// keeps flowing is not taken for a hung request. Neither the pipe nor the
// thread is made per request: a request only names the stream its output
// goes to, and at its end waits until the thread has passed on everything
// the handler wrote.
class StdoutForward {
 public:
  // Call before any request, after the modules are loaded.
  bool Start() {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) return false;
    // The writing end is blocking: a handler that writes faster than the
    // visitor reads waits on the full pipe. The reading end is not: the
    // thread polls, then reads until the pipe is empty.
    if (fcntl(fds[1], F_SETFL, 0) != 0 || dup2(fds[1], STDOUT_FILENO) < 0) return false;
    close(fds[1]);
    readFd_ = fds[0];
    endFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (endFd_ < 0) return false;
    // Signals belong to the main thread (its accept and reads must see them).
    sigset_t all, previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    std::thread(&StdoutForward::Pump, this).detach();
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    return true;
  }

  void Begin(FCGX_Stream* out, std::atomic<long long>* progress) {
    std::lock_guard<std::mutex> lock(mutex_);
    out_ = out;
    progress_ = progress;
    ended_ = false;
  }

  // Everything the handler wrote is in the pipe once it has returned and
  // stdio is flushed: the thread empties the pipe, then lets go of `out`.
  void End() {
    std::cout.flush();
    fflush(stdout);
    clearerr(stdout);
    const uint64_t one = 1;
    if (write(endFd_, &one, sizeof(one)) != static_cast<ssize_t>(sizeof(one))) _exit(1);
    std::unique_lock<std::mutex> lock(mutex_);
    endedCv_.wait(lock, [this] { return ended_; });
    out_ = nullptr;
  }

 private:
  // Passes on what the pipe holds; the caller holds mutex_.
  void Drain() {
    char buffer[65536];
    for (;;) {
      ssize_t n = read(readFd_, buffer, sizeof(buffer));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return;
      // Written outside a request (nobody should): dropped. A visitor who
      // left makes the put fail; the pipe is still emptied, so that the
      // handler never blocks on it.
      if (out_ == nullptr) continue;
      FCGX_PutStr(buffer, static_cast<int>(n), out_);
      progress_->store(MonotonicMs());
    }
  }

  void Pump() {
    struct pollfd fds[2] = {{readFd_, POLLIN, 0}, {endFd_, POLLIN, 0}};
    for (;;) {
      if (poll(fds, 2, -1) < 0) continue;
      std::lock_guard<std::mutex> lock(mutex_);
      Drain();
      if (fds[1].revents != 0) {
        uint64_t count;
        if (read(endFd_, &count, sizeof(count)) < 0) continue;
        Drain();  // what came between the first look and the end
        ended_ = true;
        endedCv_.notify_one();
      }
    }
  }

  int readFd_ = -1;
  int endFd_ = -1;
  std::mutex mutex_;
  std::condition_variable endedCv_;
  FCGX_Stream* out_ = nullptr;
  std::atomic<long long>* progress_ = nullptr;
  bool ended_ = false;
};

void Serve(FCGX_Request* request, StdoutForward* forward, Slot* slot, const zant_host::Limits& limits) {
  const zant_host::CgiVars vars = zant_host::ServerVarsFromEnviron(request->envp);
  SetRequestEnvironment(vars);
  FCGX_Stream* in = request->in;
  zant_host::BodyReader reader = [in](char* buffer, size_t size) -> long {
    int chunk = size > (1u << 20) ? (1 << 20) : static_cast<int>(size);
    return FCGX_GetStr(buffer, chunk, in);
  };
  forward->Begin(request->out, &slot->busySince);
  const std::string answer = zant_host::HandleRequest(vars, reader, limits);
  forward->End();
  FCGX_PutStr(answer.data(), static_cast<int>(answer.size()), request->out);
  // Whatever of the body was not read: the web server is still sending it.
  char sink[8192];
  while (FCGX_GetStr(sink, sizeof(sink), in) > 0) {
  }
}

void NoteRequest(Slot* slot, FCGX_Request* request) {
  const char* uri = FCGX_GetParam("REQUEST_URI", request->envp);
  snprintf(slot->uri, sizeof(slot->uri), "%s", uri != nullptr ? uri : "");
}

// Waits for the next connection; -1 once the worker is to stop.
int AcceptConnection(Shared* shared) {
  for (;;) {
    SetStopSignalsBlocked(false);
    const int fd = accept4(gListenFd, nullptr, nullptr, SOCK_CLOEXEC);
    const int error = errno;
    SetStopSignalsBlocked(true);
    if (fd >= 0) return fd;
    if (gStop || shared->stopping.load()) return -1;
    if (error != EINTR) usleep(100 * 1000);
  }
}

enum class ReadResult { kRequest, kLate, kFailed };

// Reads the begin record and parameters of the connection's request within
// `seconds`. On failure libfcgi has closed the connection.
ReadResult ReadRequest(FCGX_Request* request, int fd, int seconds) {
  // Given a connection, libfcgi reads from it instead of accepting one;
  // keepConnection stops its finishing step from closing it first. Its own
  // accept, tried after a failed read, must fail at once instead of
  // waiting on the socket without a deadline: it has no socket.
  request->ipcFd = fd;
  request->keepConnection = 1;
  request->listen_sock = -1;
  gReadExpired = 0;
  gConnectionFd = fd;
  ArmTimer(gReadTimer, seconds);
  const int rc = FCGX_Accept_r(request);
  ArmTimer(gReadTimer, 0);
  gConnectionFd = -1;
  if (rc >= 0 && !gReadExpired) return ReadResult::kRequest;
  // libfcgi takes parameters that end early for a complete set: a request
  // cut off by the deadline is dropped unanswered all the same.
  if (rc >= 0) FCGX_Free(request, 1);
  request->ipcFd = -1;
  return gReadExpired ? ReadResult::kLate : ReadResult::kFailed;
}

// A client that asked to keep its connection gets it closed all the same:
// each connection carries one request, under one read deadline. libfcgi's
// close waits for the client to stop sending; one that never stops is cut
// off at the same deadline.
void EndConnection(FCGX_Request* request, int seconds) {
  gConnectionFd = request->ipcFd;
  ArmTimer(gReadTimer, seconds);
  FCGX_Finish_r(request);
  ArmTimer(gReadTimer, 0);
  gConnectionFd = -1;
  if (request->ipcFd >= 0) close(request->ipcFd);
  request->ipcFd = -1;
}

}  // namespace

void RunWorker(const WorkerSetup& setup) {
  gShared = setup.shared;
  gListenFd = setup.listenFd;
  gMaster = setup.master;
  gOrphanLimitSeconds = setup.timeoutSeconds + kStopGraceSeconds;
  Shared* shared = setup.shared;
  Slot* slot = &shared->slots[setup.slot];
  const ServiceIdentity& identity = setup.identity;
  if (setup.lockFd >= 0) close(setup.lockFd);
  if (!MakeTimers()) _exit(1);
  InstallSignals();

  int devnull = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (devnull >= 0) {
    dup2(devnull, STDIN_FILENO);
    close(devnull);
  }
  if (!DropIds(identity)) {
    zant_host::HostLog(true, "worker %d cannot switch to uid %d gid %d: %s", setup.slot,
                       static_cast<int>(identity.uid), static_cast<int>(identity.gid), strerror(errno));
    _exit(1);
  }
  if (!WatchMaster(setup.master)) _exit(0);
  ClearRequestEnvironment();
  const mode_t startUmask = umask(022);
  umask(startUmask);
  int cwd = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);

  // A worker answers request after request: the files every request reads are
  // looked at on disk at most once a second (a change is seen within that).
  ZANT::FileCache::SetRevalidateSeconds(1);
  zant_host::LoadReport report = zant_host::InitHost();
  zant_host::HostLog(false, "worker %d ready: %d modules, %d methods, %d failed", setup.slot,
                     report.modules, report.methods, report.failures);

  StdoutForward forward;
  if (!forward.Start() || FCGX_Init() != 0) {
    zant_host::HostLog(true, "worker %d cannot set up its output", setup.slot);
    _exit(1);
  }
  FCGX_Request request;
  FCGX_InitRequest(&request, -1, 0);
  const zant_host::Limits limits;

  for (;;) {
    // Told to stop on its own (not by a stopping master): end now. A stopping
    // master has shut the socket down; accepting drains what is queued.
    if (gStop && !shared->stopping.load()) break;
    const int fd = AcceptConnection(shared);
    if (fd < 0) break;
    // The request timeout counts from here: reading the request is part of it.
    snprintf(slot->uri, sizeof(slot->uri), "(request not read yet)");
    slot->busySince.store(MonotonicMs());
    const ReadResult read = ReadRequest(&request, fd, setup.readTimeoutSeconds);
    if (read == ReadResult::kRequest) {
      NoteRequest(slot, &request);
      Serve(&request, &forward, slot, limits);
      EndConnection(&request, setup.readTimeoutSeconds);
      slot->served.fetch_add(1);
    } else if (read == ReadResult::kLate) {
      zant_host::HostLog(false, "worker %d (pid %d) dropped a connection: no request within %d s",
                         setup.slot, static_cast<int>(getpid()), setup.readTimeoutSeconds);
    }
    slot->busySince.store(0);

    ClearRequestEnvironment();
    if (cwd >= 0 && fchdir(cwd) != 0) _exit(1);
    umask(startUmask);
    RestoreIds(identity);
    // The master died while the signal was cleared: stop as if it had come.
    if (!WatchMaster(setup.master)) OnMasterGone(0);
  }
  _exit(0);
}

}  // namespace webapid
