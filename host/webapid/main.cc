// zant-webapid: master process. Opens the FastCGI socket, forks the
// workers, replaces those that die or hang, and stops on SIGTERM/SIGINT
// once the requests in hand are answered.
#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "webapid.h"
#include "zant/appliance.h"
#include "zant_host/host.h"
#include "zant_host/session.h"

namespace webapid {

long long MonotonicMs() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

namespace {

const char kDefaultSocket[] = "/run/zant-webapid.sock";
// How long a new master waits for the workers of a dead one to leave the socket.
const int kOrphanWaitMs = 3000;

void Usage(FILE* out) {
  fprintf(out,
          "usage: zant-webapid [--socket PATH] [--workers N] [--timeout SECONDS]\n"
          "                    [--read-timeout SECONDS] [--user NAME] [--root DIR]\n"
          "                    [--socket-mode OCTAL]\n"
          "  --socket PATH      FastCGI unix socket (default <root>/run/zant-webapid.sock)\n"
          "  --workers N        worker processes, 1-%d (default 2)\n"
          "  --timeout SECONDS  a request running longer kills its worker (default 30)\n"
          "  --read-timeout SECONDS\n"
          "                     a connection without its request by then is dropped (default 5)\n"
          "  --user NAME        service user when started as root (default www-data)\n"
          "  --root DIR         appliance root (sets ZANT_ROOT)\n"
          "  --socket-mode MODE permissions of the socket (default 0660)\n",
          kMaxWorkers);
}

bool ParseInt(const char* text, int low, int high, int* value) {
  char* end = nullptr;
  errno = 0;
  long v = strtol(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || v < low || v > high) return false;
  *value = static_cast<int>(v);
  return true;
}

bool ParseOptions(int argc, char** argv, Options* options) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      Usage(stdout);
      exit(0);
    }
    if (i + 1 >= argc) return false;
    const char* value = argv[++i];
    if (arg == "--socket") {
      options->socketPath = value;
    } else if (arg == "--workers") {
      if (!ParseInt(value, 1, kMaxWorkers, &options->workers)) return false;
    } else if (arg == "--timeout") {
      if (!ParseInt(value, 1, 86400, &options->timeoutSeconds)) return false;
    } else if (arg == "--read-timeout") {
      if (!ParseInt(value, 1, 3600, &options->readTimeoutSeconds)) return false;
    } else if (arg == "--user") {
      options->user = value;
    } else if (arg == "--root") {
      options->root = value;
    } else if (arg == "--socket-mode") {
      char* end = nullptr;
      long mode = strtol(value, &end, 8);
      if (end == value || *end != '\0' || mode < 0 || mode > 0777) return false;
      options->socketMode = static_cast<mode_t>(mode);
    } else {
      return false;
    }
  }
  return true;
}

bool MakeParentDirs(const std::string& path) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    if (mkdir(path.substr(0, slash).c_str(), 0755) != 0 && errno != EEXIST) return false;
  }
  return true;
}

// A socket file nobody answers on is left over from an earlier run. The
// probe does not block: a full backlog (EAGAIN) is somebody listening too.
bool SocketInUse(const sockaddr_un& address) {
  int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (probe < 0) return false;
  bool used = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 ||
              errno == EAGAIN;
  close(probe);
  return used;
}

// One master per socket: it holds an exclusive lock on <socket>.lock while it
// runs, and its workers close their copy of the file. A lock that can be
// taken therefore means that no master lives, whoever still answers.
int LockServer(const std::string& socketPath) {
  const std::string path = socketPath + ".lock";
  if (!MakeParentDirs(path)) {
    zant_host::HostLog(true, "cannot make the directory of %s: %s", path.c_str(), strerror(errno));
    return -1;
  }
  int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) {
    zant_host::HostLog(true, "cannot open %s: %s", path.c_str(), strerror(errno));
    return -1;
  }
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    zant_host::HostLog(true, "another server runs on %s", socketPath.c_str());
    close(fd);
    return -1;
  }
  const std::string pid = std::to_string(getpid()) + "\n";
  if (ftruncate(fd, 0) != 0 || pwrite(fd, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
    zant_host::HostLog(true, "cannot write %s: %s", path.c_str(), strerror(errno));
  }
  return fd;
}

// Whoever answers on the socket while we hold the lock is a worker of a
// master that died: it has been told to stop and drains what it holds. It
// gets a moment to go; the socket is taken over either way, and a worker
// still there keeps only the connections it has.
void WaitForOrphans(const sockaddr_un& address, const std::string& path) {
  if (!SocketInUse(address)) return;
  zant_host::HostLog(false, "workers of a stopped server still answer on %s: taking it over", path.c_str());
  const long long until = MonotonicMs() + kOrphanWaitMs;
  while (SocketInUse(address) && MonotonicMs() < until) usleep(50 * 1000);
}

int OpenSocket(const std::string& path, const Options& options, const ServiceIdentity& identity) {
  sockaddr_un address;
  memset(&address, 0, sizeof(address));
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    zant_host::HostLog(true, "socket path too long: %s", path.c_str());
    return -1;
  }
  memcpy(address.sun_path, path.c_str(), path.size());
  if (!MakeParentDirs(path)) {
    zant_host::HostLog(true, "cannot make the directory of %s: %s", path.c_str(), strerror(errno));
    return -1;
  }
  WaitForOrphans(address, path);
  unlink(path.c_str());
  int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
      chmod(path.c_str(), options.socketMode) != 0 ||
      (identity.drop && chown(path.c_str(), identity.uid, identity.gid) != 0) ||
      listen(fd, 128) != 0) {
    zant_host::HostLog(true, "cannot listen on %s: %s", path.c_str(), strerror(errno));
    if (fd >= 0) close(fd);
    return -1;
  }
  return fd;
}

// Started as root, the service user must be able to write the session
// store and the host log.
void PrepareWritablePaths(const ServiceIdentity& identity) {
  if (!identity.drop) return;
  const std::string sessions = ZANT::RootPath(zant_host::kSessionDir);
  MakeParentDirs(sessions + "/");
  if (chown(sessions.c_str(), identity.uid, identity.gid) != 0 || chmod(sessions.c_str(), 0700) != 0) {
    zant_host::HostLog(true, "cannot hand %s to the service user: %s", sessions.c_str(),
                       strerror(errno));
  }
  // WebMan checks a name from the web server (-7) against the user database
  // as the service user: its group may read the file (the password hashes
  // stay out of reach of every other account).
  const std::string users = ZANT::RootPath("/usr/zant/etc/users");
  struct stat st;
  if (stat(users.c_str(), &st) == 0 && st.st_uid == 0 &&
      (chown(users.c_str(), 0, identity.gid) != 0 || chmod(users.c_str(), (st.st_mode & 0750) | 0040) != 0)) {
    zant_host::HostLog(true, "cannot let the service user read %s: %s", users.c_str(), strerror(errno));
  }
  const std::string log = ZANT::RootPath(zant_host::kHostLogFile);
  int fd = zant_host::OpenHostLog();
  if (fd >= 0) {
    // A log made world-readable by an earlier version is narrowed too.
    if (fchown(fd, identity.uid, identity.gid) != 0 || fchmod(fd, 0640) != 0) {
      zant_host::HostLog(true, "cannot hand %s to the service user", log.c_str());
    }
    close(fd);
  }
}

bool ResolveIdentity(const Options& options, ServiceIdentity* identity) {
  if (geteuid() != 0) return true;
  struct passwd* pw = getpwnam(options.user.c_str());
  if (pw == nullptr) {
    zant_host::HostLog(true, "unknown service user %s", options.user.c_str());
    return false;
  }
  identity->drop = true;
  identity->uid = pw->pw_uid;
  identity->gid = pw->pw_gid;
  return true;
}

class Master {
 public:
  Master(const Options& options, const ServiceIdentity& identity, int listenFd, int lockFd, Shared* shared)
      : options_(options), identity_(identity), listenFd_(listenFd), lockFd_(lockFd), shared_(shared) {}

  int Run() {
    for (int i = 0; i < options_.workers; ++i) Spawn(i);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    for (;;) {
      struct timespec wait = {0, 200 * 1000 * 1000};
      int sig = sigtimedwait(&set, nullptr, &wait);
      if ((sig == SIGTERM || sig == SIGINT) && !stopping_) BeginStop(sig);
      Reap();
      KillHung();
      if (stopping_) {
        if (LiveWorkers() == 0) break;
        if (MonotonicMs() > stopDeadline_) KillAll();
      } else {
        RespawnDue();
      }
    }
    zant_host::HostLog(false, "stopped");
    return 0;
  }

 private:
  void Spawn(int slot) {
    Slot& s = shared_->slots[slot];
    s.busySince.store(0);
    pid_t pid = fork();
    if (pid < 0) {
      zant_host::HostLog(true, "cannot start worker %d: %s", slot, strerror(errno));
      respawnAt_[slot] = MonotonicMs() + 1000;
      return;
    }
    if (pid == 0) {
      WorkerSetup setup;
      setup.listenFd = listenFd_;
      setup.lockFd = lockFd_;
      setup.slot = slot;
      setup.shared = shared_;
      setup.identity = identity_;
      setup.master = master_;
      setup.readTimeoutSeconds = options_.readTimeoutSeconds;
      setup.timeoutSeconds = options_.timeoutSeconds;
      RunWorker(setup);
    }
    s.pid.store(pid);
    startedAt_[slot] = MonotonicMs();
    respawnAt_[slot] = 0;
  }

  void BeginStop(int sig) {
    stopping_ = true;
    stopDeadline_ = MonotonicMs() + (options_.timeoutSeconds + kStopGraceSeconds) * 1000LL;
    zant_host::HostLog(false, "%s: stopping after the requests in hand",
                       sig == SIGTERM ? "SIGTERM" : "SIGINT");
    shared_->stopping.store(1);
    for (int i = 0; i < options_.workers; ++i) {
      pid_t pid = shared_->slots[i].pid.load();
      if (pid > 0) kill(pid, SIGTERM);
    }
    // New connections are refused from now on; queued ones are still accepted.
    shutdown(listenFd_, SHUT_RD);
  }

  int SlotOf(pid_t pid) const {
    for (int i = 0; i < options_.workers; ++i) {
      if (shared_->slots[i].pid.load() == pid) return i;
    }
    return -1;
  }

  void Reap() {
    int status = 0;
    pid_t pid;
    while ((pid = waitpid(-1, &status, WNOHANG)) > 0) {
      int slot = SlotOf(pid);
      if (slot < 0) continue;
      Slot& s = shared_->slots[slot];
      const bool wasBusy = s.busySince.load() != 0;
      s.pid.store(0);
      s.busySince.store(0);
      if (WIFSIGNALED(status)) {
        zant_host::HostLog(true, "worker %d (pid %d) killed by signal %d%s%s", slot,
                           static_cast<int>(pid), WTERMSIG(status),
                           wasBusy ? " while serving " : "", wasBusy ? s.uri : "");
      } else if (!stopping_ || WEXITSTATUS(status) != 0) {
        zant_host::HostLog(WEXITSTATUS(status) != 0, "worker %d (pid %d) exited with status %d",
                           slot, static_cast<int>(pid), WEXITSTATUS(status));
      }
      if (stopping_) continue;
      // A worker that dies at once (a module that fails while loading) is
      // restarted after a pause instead of in a tight loop.
      const bool early = MonotonicMs() - startedAt_[slot] < 2000;
      respawnAt_[slot] = early ? MonotonicMs() + 1000 : MonotonicMs();
    }
  }

  void KillHung() {
    const long long now = MonotonicMs();
    for (int i = 0; i < options_.workers; ++i) {
      Slot& s = shared_->slots[i];
      const long long since = s.busySince.load();
      const pid_t pid = s.pid.load();
      if (pid > 0 && since != 0 && now - since > options_.timeoutSeconds * 1000LL) {
        zant_host::HostLog(true, "worker %d (pid %d) killed: request over %d s: %s", i,
                           static_cast<int>(pid), options_.timeoutSeconds, s.uri);
        kill(pid, SIGKILL);
        s.busySince.store(0);
      }
    }
  }

  void RespawnDue() {
    const long long now = MonotonicMs();
    for (int i = 0; i < options_.workers; ++i) {
      if (shared_->slots[i].pid.load() == 0 && respawnAt_[i] != 0 && respawnAt_[i] <= now) Spawn(i);
    }
  }

  int LiveWorkers() const {
    int live = 0;
    for (int i = 0; i < options_.workers; ++i) {
      if (shared_->slots[i].pid.load() > 0) ++live;
    }
    return live;
  }

  void KillAll() {
    for (int i = 0; i < options_.workers; ++i) {
      pid_t pid = shared_->slots[i].pid.load();
      if (pid > 0) {
        zant_host::HostLog(true, "worker %d (pid %d) did not stop in time, killed", i,
                           static_cast<int>(pid));
        kill(pid, SIGKILL);
      }
    }
    stopDeadline_ = MonotonicMs() + 1000;
  }

  const Options& options_;
  const ServiceIdentity& identity_;
  const int listenFd_;
  const int lockFd_;
  Shared* shared_;
  const pid_t master_ = getpid();
  bool stopping_ = false;
  long long stopDeadline_ = 0;
  long long startedAt_[kMaxWorkers] = {};
  long long respawnAt_[kMaxWorkers] = {};
};

}  // namespace

}  // namespace webapid

int main(int argc, char** argv) {
  using namespace webapid;
  Options options;
  if (!ParseOptions(argc, argv, &options)) {
    Usage(stderr);
    return 2;
  }
  if (!options.root.empty()) {
    setenv("ZANT_ROOT", options.root.c_str(), 1);
  } else {
    zant_host::DefaultRootFromExecutable("/usr/zant/bin/zant-webapid");
  }
  const std::string socketPath =
      options.socketPath.empty() ? ZANT::RootPath(kDefaultSocket) : options.socketPath;

  // The master waits for its signals with sigtimedwait; workers unblock theirs.
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGCHLD);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  signal(SIGPIPE, SIG_IGN);
  zant_host::SetHostLogEcho(true);

  ServiceIdentity identity;
  if (!ResolveIdentity(options, &identity)) return 1;
  const int lockFd = LockServer(socketPath);
  if (lockFd < 0) return 1;
  int listenFd = OpenSocket(socketPath, options, identity);
  if (listenFd < 0) return 1;
  PrepareWritablePaths(identity);

  void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    zant_host::HostLog(true, "cannot map the worker table: %s", strerror(errno));
    return 1;
  }
  Shared* shared = new (memory) Shared();

  const char* root = getenv("ZANT_ROOT");
  zant_host::HostLog(false, "listening on %s with %d workers (root %s, %s)", socketPath.c_str(),
                     options.workers, root != nullptr && *root != '\0' ? root : "/",
                     identity.drop ? ("service user " + options.user).c_str() : "unchanged ids");
  int rc = Master(options, identity, listenFd, lockFd, shared).Run();
  close(listenFd);
  unlink(socketPath.c_str());
  return rc;
}
