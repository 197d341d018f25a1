// A worker: loads the modules once, then serves one request at a time.
#include <fcgiapp.h>
#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <stdio_ext.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <streambuf>
#include <string>
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
int gSlotIndex = 0;
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

// The name of a "NAME=value" entry of an environment; empty without a '='.
std::string NameOf(const char* entry) {
  const char* eq = strchr(entry, '=');
  return eq == nullptr ? std::string() : std::string(entry, static_cast<size_t>(eq - entry));
}

// The process environment (modules read `HTTP_HOST`, `USERNAME`, ... with
// getenv): while a request is served, `environ` is an array of the worker's
// own holding the server's variables and the request's CGI variables, whose
// texts stay in libfcgi's copy of the parameters. setenv would keep every
// "NAME=value" it is ever given (the C library never frees them), so that
// the worker would grow with every distinct address, cookie and port.
class RequestEnvironment {
 public:
  // The server's variables, less any that look like a request's.
  void Start() {
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
      const std::string name = NameOf(*entry);
      if (name != "USERNAME" && !zant_host::IsServerVariable(name)) server_.push_back(*entry);
    }
    server_.push_back(nullptr);
    environ = server_.data();
  }

  // `envp` must outlive the request: libfcgi frees it when the request ends.
  void Set(char** envp) {
    request_.assign(server_.begin(), server_.end() - 1);
    for (char** entry = envp; entry != nullptr && *entry != nullptr; ++entry) {
      if (zant_host::IsServerVariable(NameOf(*entry))) request_.push_back(*entry);
    }
    request_.push_back(nullptr);
    environ = request_.data();
  }

  // A handler's setenv moved `environ` to an array of the C library's; it is
  // left behind too, whatever it holds.
  void Clear() { environ = server_.data(); }

 private:
  std::vector<char*> server_;
  std::vector<char*> request_;
};

// std::cout's way into `stdout`, as the C++ library's own synchronised buffer
// is for the stream it was given at start-up: both streams share one buffer
// and keep their order.
class StdioBuf : public std::streambuf {
 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    return fputc(c, stdout) == EOF ? traits_type::eof() : c;
  }
  std::streamsize xsputn(const char* data, std::streamsize size) override {
    return static_cast<std::streamsize>(fwrite(data, 1, static_cast<size_t>(size), stdout));
  }
  int sync() override { return fflush(stdout) == 0 ? 0 : -1; }
};

// Passes what the handler writes on to the web server while the handler runs.
// `stdout` of a worker is a stdio stream of its own whose writes become the
// request's FastCGI output, and std::cout writes into it: a download or an
// archive goes out as it is written instead of piling up in memory, and
// every piece sent counts as progress, so that an answer that keeps flowing
// is not taken for a hung request. File descriptor 1 is a file in memory;
// what a handler writes to it directly is passed on before the next piece of
// stdio output and at the end, in the order a real descriptor would give.
//
// All of it happens in the worker, not in a thread or a process beside it:
// the modules switch their ids around their link-service calls, and with a
// second thread the C library makes every thread follow each switch; a
// process beside it costs a hand-over of the connection and two wake-ups a
// request.
class HandlerOutput {
 public:
  // Once the modules are loaded (what they print while loading goes where it
  // always went).
  bool Install(std::atomic<long long>* progress) {
    progress_ = progress;
    const int raw = memfd_create("handler-output", MFD_CLOEXEC);
    if (raw < 0) return false;
    const bool moved = dup2(raw, STDOUT_FILENO) == STDOUT_FILENO;  // dup2 drops CLOEXEC
    if (raw != STDOUT_FILENO) close(raw);
    const cookie_io_functions_t functions = {nullptr, &HandlerOutput::Write, nullptr, nullptr};
    FILE* stream = fopencookie(this, "w", functions);
    if (!moved || stream == nullptr || setvbuf(stream, nullptr, _IOFBF, kBufferBytes) != 0) return false;
    std::cout.flush();
    fflush(stdout);
    stdout = stream;  // the C library's `stdout` is an ordinary variable
    static StdioBuf toStdout;
    std::cout.rdbuf(&toStdout);
    return true;
  }

  void Begin(FCGX_Stream* out) { out_ = out; }

  // Everything the handler wrote goes out before the framework's answer.
  void End() {
    std::cout.flush();
    const unsigned long writes = writes_;
    fflush(stdout);
    // A write of the flush looked for direct output already.
    if (writes_ == writes) PassRaw();
    // A failed write leaves nothing behind for the next request.
    __fpurge(stdout);
    clearerr(stdout);
    std::cout.clear();
    out_ = nullptr;
  }

 private:
  static constexpr size_t kBufferBytes = 32 * 1024;

  static ssize_t Write(void* cookie, const char* data, size_t size) {
    auto* self = static_cast<HandlerOutput*>(cookie);
    ++self->writes_;
    self->PassRaw();
    return self->Put(data, size) ? static_cast<ssize_t>(size) : -1;
  }

  // False once the web server is gone: the handler's writes fail, as they
  // would on a closed descriptor. Written outside a request: dropped.
  bool Put(const char* data, size_t size) {
    if (out_ == nullptr) return true;
    while (size > 0) {
      const int chunk = size > (1u << 30) ? (1 << 30) : static_cast<int>(size);
      if (FCGX_PutStr(data, chunk, out_) != chunk) return false;
      progress_->store(MonotonicMs());
      data += chunk;
      size -= static_cast<size_t>(chunk);
    }
    return true;
  }

  // What was written to file descriptor 1 itself since the last look.
  void PassRaw() {
    const off_t size = lseek(STDOUT_FILENO, 0, SEEK_CUR);
    if (size <= 0) return;
    static char buffer[64 * 1024];
    for (off_t at = 0; at < size;) {
      const ssize_t n = pread(STDOUT_FILENO, buffer, sizeof(buffer), at);
      if (n <= 0 || !Put(buffer, static_cast<size_t>(n))) break;
      at += n;
    }
    if (ftruncate(STDOUT_FILENO, 0) != 0 || lseek(STDOUT_FILENO, 0, SEEK_SET) != 0) {
      zant_host::HostLog(true, "worker %d cannot empty its output file: %s", gSlotIndex, strerror(errno));
      _exit(1);
    }
  }

  FCGX_Stream* out_ = nullptr;
  std::atomic<long long>* progress_ = nullptr;
  unsigned long writes_ = 0;  // calls of Write
};

void Serve(FCGX_Request* request, RequestEnvironment* environment, HandlerOutput* output,
           const zant_host::Limits& limits) {
  const zant_host::CgiVars vars = zant_host::ServerVarsFromEnviron(request->envp);
  environment->Set(request->envp);
  FCGX_Stream* in = request->in;
  zant_host::BodyReader reader = [in](char* buffer, size_t size) -> long {
    int chunk = size > (1u << 20) ? (1 << 20) : static_cast<int>(size);
    return FCGX_GetStr(buffer, chunk, in);
  };
  output->Begin(request->out);
  const std::string answer = zant_host::HandleRequest(vars, reader, limits);
  output->End();
  FCGX_PutStr(answer.data(), static_cast<int>(answer.size()), request->out);
  // Whatever of the body was not read: the web server is still sending it.
  char sink[8192];
  while (FCGX_GetStr(sink, sizeof(sink), in) > 0) {
  }
  environment->Clear();
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
// each connection carries one request, under one read deadline. A request
// read to its end leaves nothing to wait for, and the connection is closed at
// once. After an error libfcgi closes it, waiting for the client to stop
// sending; one that never stops is cut off at the same deadline.
void EndConnection(FCGX_Request* request, int seconds) {
  if (FCGX_GetError(request->in) == 0 && FCGX_GetError(request->out) == 0) {
    request->keepConnection = 1;
    FCGX_Finish_r(request);
  } else {
    gConnectionFd = request->ipcFd;
    ArmTimer(gReadTimer, seconds);
    FCGX_Finish_r(request);
    ArmTimer(gReadTimer, 0);
    gConnectionFd = -1;
  }
  if (request->ipcFd >= 0) close(request->ipcFd);
  request->ipcFd = -1;
}

}  // namespace

void RunWorker(const WorkerSetup& setup) {
  gShared = setup.shared;
  gListenFd = setup.listenFd;
  gMaster = setup.master;
  gOrphanLimitSeconds = setup.timeoutSeconds + kStopGraceSeconds;
  gSlotIndex = setup.slot;
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
  RequestEnvironment environment;
  environment.Start();
  const mode_t startUmask = umask(022);
  umask(startUmask);
  int cwd = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);

  // A worker answers request after request: the files every request reads are
  // looked at on disk at most once a second (a change is seen within that).
  ZANT::FileCache::SetRevalidateSeconds(1);
  zant_host::LoadReport report = zant_host::InitHost();
  zant_host::HostLog(false, "worker %d ready: %d modules, %d methods, %d failed", setup.slot,
                     report.modules, report.methods, report.failures);

  HandlerOutput output;
  if (!output.Install(&slot->busySince) || FCGX_Init() != 0) {
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
      Serve(&request, &environment, &output, limits);
      EndConnection(&request, setup.readTimeoutSeconds);
      slot->served.fetch_add(1);
    } else if (read == ReadResult::kLate) {
      zant_host::HostLog(false, "worker %d (pid %d) dropped a connection: no request within %d s",
                         setup.slot, static_cast<int>(getpid()), setup.readTimeoutSeconds);
    }
    slot->busySince.store(0);

    if (cwd >= 0 && fchdir(cwd) != 0) _exit(1);
    umask(startUmask);
    RestoreIds(identity);
    // The master died while the signal was cleared: stop as if it had come.
    if (!WatchMaster(setup.master)) OnMasterGone(0);
  }
  _exit(0);
}

}  // namespace webapid
