// One-shot CGI load: runs a program again and again, CONCURRENCY at a time,
// for SECONDS, each with the environment of this process (the CGI variables
// set by the caller) and its standard output read to the end through a pipe,
// as a web server's CGI gateway would. Prints one line of figures:
//
//   runs=N rate=R p50_us=A p99_us=B cpu_us_per_run=C peak_rss_kb=M failures=F
//
//   cgi_runner SECONDS CONCURRENCY PROGRAM [ARG...]
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

double Now() {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

struct Run {
  pid_t pid = -1;
  int out = -1;
  double started = 0;
};

Run Start(char** argv) {
  Run run;
  int fds[2];
  if (pipe(fds) != 0) return run;
  run.started = Now();
  run.pid = fork();
  if (run.pid == 0) {
    dup2(fds[1], 1);
    close(fds[0]);
    close(fds[1]);
    execv(argv[0], argv);
    _exit(127);
  }
  close(fds[1]);
  run.out = fds[0];
  return run;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    fprintf(stderr, "usage: cgi_runner SECONDS CONCURRENCY PROGRAM [ARG...]\n");
    return 2;
  }
  const double seconds = atof(argv[1]);
  const size_t concurrency = static_cast<size_t>(std::max(1, atoi(argv[2])));
  char** program = argv + 3;

  std::vector<Run> running;
  std::vector<double> latencies;
  long failures = 0, peakRss = 0;
  const double begin = Now();
  char sink[65536];
  while (true) {
    const bool more = Now() - begin < seconds;
    while (more && running.size() < concurrency) running.push_back(Start(program));
    if (running.empty()) break;
    std::vector<struct pollfd> fds;
    for (const Run& run : running) fds.push_back({run.out, POLLIN, 0});
    poll(fds.data(), fds.size(), 1000);
    for (size_t i = running.size(); i-- > 0;) {
      if (fds[i].revents == 0) continue;
      if (read(running[i].out, sink, sizeof sink) > 0) continue;
      close(running[i].out);
      int status = 0;
      struct rusage usage;
      wait4(running[i].pid, &status, 0, &usage);
      peakRss = std::max(peakRss, usage.ru_maxrss);
      if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) ++failures;
      latencies.push_back(Now() - running[i].started);
      running.erase(running.begin() + static_cast<long>(i));
    }
  }
  const double elapsed = Now() - begin;
  struct rusage children;
  getrusage(RUSAGE_CHILDREN, &children);
  const double cpu = static_cast<double>(children.ru_utime.tv_sec + children.ru_stime.tv_sec) * 1e6 +
                     static_cast<double>(children.ru_utime.tv_usec + children.ru_stime.tv_usec);
  std::sort(latencies.begin(), latencies.end());
  auto at = [&latencies](double q) {
    return latencies.empty() ? 0.0 : latencies[static_cast<size_t>(q * (latencies.size() - 1))] * 1e6;
  };
  const size_t runs = latencies.size();
  printf("runs=%zu rate=%.1f p50_us=%.0f p99_us=%.0f cpu_us_per_run=%.0f peak_rss_kb=%ld failures=%ld\n",
         runs, static_cast<double>(runs) / elapsed, at(0.5), at(0.99),
         runs ? cpu / static_cast<double>(runs) : 0.0, peakRss, failures);
  return 0;
}
