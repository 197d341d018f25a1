// What the benchmarks share: one throw-away appliance root for the whole
// run, standard output sent to /dev/null while a benchmark loops, and the
// requests and records the benchmarks are made of.
#pragma once

#include <string>

#include <benchmark/benchmark.h>
#include <json/json.h>

#include "harness.h"
#include "zant/tarnova.h"
#include "zant/webapi.h"

namespace plyth_bench {

// Link identifiers and the token the in-memory link service accepts.
extern const char kPermanentLink[];
extern const char kSharingLink[];
extern const char kSharingToken[];
extern const char kDesktopAgent[];
extern const char kPhoneAgent[];

// The appliance root every benchmark runs in: this tree's web files (the
// real templates, texts and scripts) and the configuration files a new
// appliance root gets. Lives from Setup() to Teardown().
void SetupRoot();
void TeardownRoot();
const plyth_test::ApplianceRoot& Root();

// Points file descriptor 1 (stdio included) at /dev/null while it lives,
// so that the writing a handler does is paid for but not shown.
class StdoutToDevNull {
 public:
  StdoutToDevNull();
  ~StdoutToDevNull();
  StdoutToDevNull(const StdoutToDevNull&) = delete;
  StdoutToDevNull& operator=(const StdoutToDevNull&) = delete;

 private:
  int saved_ = -1;
};

// A request of method `method` with the server variables nginx hands over
// for `uri` on 127.0.0.1:8080.
ZANT::APIRequest LinkRequest(const std::string& method, const std::string& uri,
                             const char* userAgent);

// The file record the link service answers for the benchmark's item, as
// ZANT.BrindlexPlyth.Files "get" shapes it.
Json::Value FileRecord(const std::string& displayPath);
// A record with every field set, two grants and two labels.
Tarnova::FileInfo FullFileInfo();

// Runs `handler` once the way the framework does and checks that its answer
// holds `expected` and not `unwanted` (when given); false, with the
// benchmark skipped and the reason given, when the answer is not the one
// the benchmark means to measure.
bool CheckAnswer(benchmark::State& state, ZANT::APIHandler handler,
                 const ZANT::APIRequest& request, const std::string& expected,
                 const std::string& unwanted = "");

// The timed loop of a handler: a fresh copy of `request` per iteration,
// made current as the framework does; what the handler writes and the
// framework's own answer (when the handler left the output on) go to
// standard output.
void LoopHandler(benchmark::State& state, ZANT::APIHandler handler,
                 const ZANT::APIRequest& request);

}  // namespace plyth_bench
