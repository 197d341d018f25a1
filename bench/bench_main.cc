// The benchmark program: one appliance root for the whole run, a process
// that looks root (as the framework's request runner does on the appliance,
// so the privilege switch around in-process calls has nothing to change),
// and the system log kept in memory.
#include <cstdio>

#include <benchmark/benchmark.h>

#include "bench_support.h"
#include "harness.h"

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

  plyth_bench::SetupRoot();
  size_t syslogLines = 0;
  {
    plyth_test::FakeIdentity root(0, 0);
    plyth_test::SyslogCapture syslog;
    benchmark::RunSpecifiedBenchmarks();
    syslogLines = syslog.Lines().size();
  }
  benchmark::Shutdown();
  plyth_bench::TeardownRoot();

  // The measured paths are the quiet ones; a line here means a benchmark
  // ran into an error path and its figure is not what its name says.
  if (syslogLines != 0) {
    fprintf(stderr, "plyth_bench: %zu system-log lines were written during the runs\n",
            syslogLines);
    return 1;
  }
  return 0;
}
