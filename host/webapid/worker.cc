// A worker: loads the modules once, then serves one request at a time.
#include <fcgiapp.h>
#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/stat.h>
#include <time.h>
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
// to the web server while the handler runs: fd 1 of a worker is, for its
// whole life, the writing end of one pipe that a small forwarding process of
// its own reads, wrapping what it reads in FastCGI output records on the
// request's connection. A download or an archive goes out as it is written
// instead of piling up in memory, and every piece sent counts as progress,
// so that an answer that keeps flowing is not taken for a hung request.
//
// A process, not a thread: the modules switch their ids around their
// link-service calls, and with a second thread in the worker the C library
// makes every thread switch with them (a signal to the other thread and a
// wait for its answer, ten times a landing).
class StdoutForward {
 public:
  // Forks the forwarding process; call before the modules are loaded.
  bool Start(int listenFd, std::atomic<long long>* progress) {
    int pipeFds[2];
    int control[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) return false;
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, control) != 0) return false;
    const pid_t worker = getpid();
    const pid_t pid = fork();
    if (pid < 0) return false;
    if (pid == 0) {
      close(pipeFds[1]);
      close(control[0]);
      close(listenFd);
      RunForwarder(worker, pipeFds[0], control[1], progress);
    }
    close(pipeFds[0]);
    close(control[1]);
    control_ = control[0];
    pipeWrite_ = pipeFds[1];
    return true;
  }

  // Once the modules are loaded (what they print while loading goes where it
  // always went).
  bool TakeStdout() {
    if (dup2(pipeWrite_, STDOUT_FILENO) < 0) return false;  // dup2 drops CLOEXEC
    close(pipeWrite_);
    pipeWrite_ = -1;
    return true;
  }

  // Hands the request's connection to the forwarding process.
  bool Begin(FCGX_Request* request) {
    ControlMessage sent;
    sent.message = {Message::kBegin, request->requestId};
    struct cmsghdr* rights = CMSG_FIRSTHDR(&sent.header);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(rights), &request->ipcFd, sizeof(int));
    return SendAll(control_, &sent.header);
  }

  // Everything the handler wrote is in the pipe once it has returned and
  // stdio is flushed: the forwarding process empties the pipe, lets go of
  // the connection and says so. Nothing was put on the request's output
  // stream before, so the framework's answer follows the handler's output.
  void End() {
    std::cout.flush();
    fflush(stdout);
    clearerr(stdout);
    const Message message{Message::kEnd, 0};
    char done;
    if (send(control_, &message, sizeof(message), MSG_NOSIGNAL) != static_cast<ssize_t>(sizeof(message)) ||
        RecvRetrying(control_, &done, 1) != 1) {
      zant_host::HostLog(true, "the output of worker %d (pid %d) went with its forwarding process",
                         gSlotIndex, static_cast<int>(getpid()));
      _exit(1);
    }
  }

 private:
  struct Message {
    enum Kind : int { kBegin, kEnd } kind;
    int requestId;
  };

  // A message of the control socket with room for one descriptor; refers to
  // itself, so it stays where it was made.
  struct ControlMessage {
    Message message{};
    char space[CMSG_SPACE(sizeof(int))] = {};
    struct iovec part = {&message, sizeof(message)};
    struct msghdr header = {nullptr, 0, &part, 1, space, sizeof(space), 0};
    ControlMessage() = default;
    ControlMessage(const ControlMessage&) = delete;
    ControlMessage& operator=(const ControlMessage&) = delete;
  };

  static bool SendAll(int fd, struct msghdr* header) {
    for (;;) {
      if (sendmsg(fd, header, MSG_NOSIGNAL) >= 0) return true;
      if (errno != EINTR) return false;
    }
  }

  static ssize_t RecvRetrying(int fd, void* buffer, size_t size) {
    for (;;) {
      const ssize_t n = recv(fd, buffer, size, 0);
      if (n >= 0 || errno != EINTR) return n;
    }
  }

  // FastCGI output records of one request, written whole; false once the
  // web server is gone.
  static bool PutRecords(int connection, int requestId, const char* data, size_t size) {
    while (size > 0) {
      const size_t chunk = size > 65535 ? 65535 : size;
      const unsigned char head[8] = {1, 6 /* stdout */, static_cast<unsigned char>(requestId >> 8),
                                     static_cast<unsigned char>(requestId & 0xff),
                                     static_cast<unsigned char>(chunk >> 8),
                                     static_cast<unsigned char>(chunk & 0xff), 0, 0};
      struct iovec parts[2] = {{const_cast<unsigned char*>(head), sizeof(head)},
                               {const_cast<char*>(data), chunk}};
      size_t left = sizeof(head) + chunk;
      int first = 0;
      while (left > 0) {
        const ssize_t n = writev(connection, parts + first, 2 - first);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        left -= static_cast<size_t>(n);
        size_t moved = static_cast<size_t>(n);
        while (first < 2 && moved >= parts[first].iov_len) moved -= parts[first++].iov_len;
        if (first < 2) {
          parts[first].iov_base = static_cast<char*>(parts[first].iov_base) + moved;
          parts[first].iov_len -= moved;
        }
      }
      data += chunk;
      size -= chunk;
    }
    return true;
  }

  // The forwarding process: lives as long as its worker, runs no module code.
  [[noreturn]] static void RunForwarder(pid_t worker, int pipeRead, int control,
                                        std::atomic<long long>* progress) {
    // It keeps no way back to the ids the worker may raise (changing ids
    // clears the parent-death signal: asked for after).
    const gid_t gid = getegid();
    const uid_t uid = geteuid();
    if (setresgid(gid, gid, gid) != 0 || setresuid(uid, uid, uid) != 0) _exit(1);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != worker) _exit(0);
    // Stops and deadlines are the worker's: this process ends with it.
    for (int number : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGALRM, SIGPIPE}) signal(number, SIG_IGN);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    fcntl(pipeRead, F_SETFL, O_NONBLOCK);
    int connection = -1;
    int requestId = 0;
    bool flowing = false;  // the web server still takes the output
    static char buffer[65535];
    // Passes on what the pipe holds; a visitor who left makes the writes
    // fail, and the pipe is still emptied, so that the handler never blocks
    // on it.
    auto drain = [&] {
      for (;;) {
        const ssize_t n = read(pipeRead, buffer, sizeof(buffer));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        if (connection < 0 || !flowing) continue;  // written outside a request: dropped
        flowing = PutRecords(connection, requestId, buffer, static_cast<size_t>(n));
        progress->store(MonotonicMs());
      }
    };
    struct pollfd fds[2] = {{control, POLLIN, 0}, {pipeRead, POLLIN, 0}};
    for (;;) {
      if (poll(fds, 2, -1) < 0) continue;
      if (fds[0].revents != 0) {
        ControlMessage received;
        const Message& message = received.message;
        const ssize_t n = recvmsg(control, &received.header, MSG_CMSG_CLOEXEC);
        if (n < 0 && errno == EINTR) continue;
        if (n != static_cast<ssize_t>(sizeof(message))) _exit(0);  // the worker is gone
        struct cmsghdr* rights = CMSG_FIRSTHDR(&received.header);
        if (message.kind == Message::kBegin && rights != nullptr && rights->cmsg_type == SCM_RIGHTS) {
          memcpy(&connection, CMSG_DATA(rights), sizeof(int));
          requestId = message.requestId;
          flowing = true;
        } else if (message.kind == Message::kEnd) {
          drain();
          if (connection >= 0) close(connection);
          connection = -1;
          const char done = 1;
          if (send(control, &done, 1, MSG_NOSIGNAL) != 1) _exit(0);
          // What the pipe holds from here on is the next request's, which
          // may come before its connection does: look again.
          continue;
        }
      }
      if (fds[1].revents != 0) drain();
    }
  }

  int control_ = -1;
  int pipeWrite_ = -1;
};

void Serve(FCGX_Request* request, StdoutForward* forward, const zant_host::Limits& limits) {
  const zant_host::CgiVars vars = zant_host::ServerVarsFromEnviron(request->envp);
  SetRequestEnvironment(vars);
  FCGX_Stream* in = request->in;
  zant_host::BodyReader reader = [in](char* buffer, size_t size) -> long {
    int chunk = size > (1u << 20) ? (1 << 20) : static_cast<int>(size);
    return FCGX_GetStr(buffer, chunk, in);
  };
  if (!forward->Begin(request)) {
    zant_host::HostLog(true, "cannot pass output on: %s", strerror(errno));
    FCGX_PutS("Status: 500 Internal Server Error\r\n\r\n", request->out);
    return;
  }
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
  ClearRequestEnvironment();
  const mode_t startUmask = umask(022);
  umask(startUmask);
  int cwd = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);

  StdoutForward forward;
  if (!forward.Start(gListenFd, &slot->busySince)) {
    zant_host::HostLog(true, "worker %d cannot start its output forwarding: %s", setup.slot, strerror(errno));
    _exit(1);
  }

  // A worker answers request after request: the files every request reads are
  // looked at on disk at most once a second (a change is seen within that).
  ZANT::FileCache::SetRevalidateSeconds(1);
  zant_host::LoadReport report = zant_host::InitHost();
  zant_host::HostLog(false, "worker %d ready: %d modules, %d methods, %d failed", setup.slot,
                     report.modules, report.methods, report.failures);

  if (!forward.TakeStdout() || FCGX_Init() != 0) {
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
      Serve(&request, &forward, limits);
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
