// zant-webapid: the framework as a pre-forked FastCGI server.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <string>

namespace webapid {

struct Options {
  std::string socketPath;        // empty: RootPath("/run/zant-webapid.sock")
  int workers = 2;
  int timeoutSeconds = 30;
  int readTimeoutSeconds = 5;     // a connection must deliver its request's parameters in time
  std::string user = "www-data";  // service user when started as root
  std::string root;              // ZANT_ROOT, empty: keep the environment's
  mode_t socketMode = 0660;
};

constexpr int kMaxWorkers = 64;

// One worker's state, in memory shared between the master and the workers.
struct Slot {
  std::atomic<int> pid;
  std::atomic<long long> busySince;  // monotonic ms when the request began or last sent output, 0 when idle
  std::atomic<unsigned long long> served;
  char uri[256];                     // REQUEST_URI of the request in hand, for the log
};

struct Shared {
  std::atomic<int> stopping;  // the master is stopping: drain the socket, then exit
  Slot slots[kMaxWorkers];
};

// The identity the workers run as.
struct ServiceIdentity {
  bool drop = false;  // started as root: effective ids become uid/gid, saved ids stay 0
  uid_t uid = 0;
  gid_t gid = 0;
};

long long MonotonicMs();

// After a stop is asked for, workers get this long beyond the request timeout.
constexpr int kStopGraceSeconds = 5;

// What a worker is started with.
struct WorkerSetup {
  int listenFd = -1;
  int lockFd = -1;  // the master's lock: closed in the worker, so that only the master holds it
  int slot = 0;
  Shared* shared = nullptr;
  ServiceIdentity identity;
  pid_t master = 0;
  int readTimeoutSeconds = 5;
  int timeoutSeconds = 30;
};

// Runs a worker until it is told to stop; never returns.
[[noreturn]] void RunWorker(const WorkerSetup& setup);

}  // namespace webapid
