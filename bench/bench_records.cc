// Shared conversions and checks: a file record as JSON, path safety, and the
// framework's own answer text.
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench_support.h"
#include "plyth_utils.h"

namespace plyth_bench {
namespace {

void FileInfoToJson(benchmark::State& state) {
  const Tarnova::FileInfo info = FullFileInfo();
  for (auto _ : state) {
    Json::Value out;
    if (ConvertFileInfoToJSon(info, out) != 0) {
      state.SkipWithError("the record's properties were not taken");
      break;
    }
    benchmark::DoNotOptimize(out);
  }
}
BENCHMARK(FileInfoToJson)->Name("ConvertFileInfoToJSon/full_record");

// Paths as the product's other modules check them: ordinary ones, deep
// ones, and ones that try to climb out.
void SafePath(benchmark::State& state) {
  const std::vector<std::string> paths = {
      "/Annual report.pdf",
      "/projects/2024/finance/quarterly/Q3 forecast (final).xlsx",
      "/projects/2024/../../etc/passwd",
      "photos/holiday/./IMG_0042.jpg",
  };
  for (auto _ : state) {
    for (const std::string& path : paths) benchmark::DoNotOptimize(IsSafePath(path));
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(paths.size()));
}
BENCHMARK(SafePath)->Name("IsSafePath/4_paths");

// A success carrying a file record, as the link service's own web API
// answers a browser.
void FrameworkAnswerJson(benchmark::State& state) {
  ZANT::APIResponse response;
  response.SetSuccess(FileRecord("/home/Annual report.pdf"));
  for (auto _ : state) {
    std::string answer = ZANT::FormatFrameworkAnswer(response);
    benchmark::DoNotOptimize(answer);
  }
}
BENCHMARK(FrameworkAnswerJson)->Name("FormatFrameworkAnswer/file_record");

void FrameworkAnswerRedirect(benchmark::State& state) {
  ZANT::APIResponse response;
  response.SetSuccess();
  response.SetHeader("Location",
                     "http://127.0.0.1:8080/?launchApp=ZANT.QRT.Plyth.Application"
                     "&launchParam=file_id%3DaZ3kP9sT1vX7bN2q");
  for (auto _ : state) {
    std::string answer = ZANT::FormatFrameworkAnswer(response);
    benchmark::DoNotOptimize(answer);
  }
}
BENCHMARK(FrameworkAnswerRedirect)->Name("FormatFrameworkAnswer/redirect");

}  // namespace
}  // namespace plyth_bench
