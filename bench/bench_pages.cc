// The page builders' pieces: filling the real desktop template, escaping,
// and the modification-time look-up behind every versioned resource URL.
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include <benchmark/benchmark.h>

#include "bench_support.h"
#include "page_output.h"
#include "web_resources.h"

namespace plyth_bench {
namespace {

const char kShareTemplate[] = "/var/packages/BrindlexPlyth/target/webapi/plyth/shard/shard.html";
const char kPageScript[] = "webman/3rdparty/BrindlexPlyth-Plyth/public_share.js";

// The values the desktop page fills shard.html with, built as the page does.
Json::Value SharePageValues() {
  const char* const scripts[] = {
      "webapi/entry.cgi?api=ZANT.Core.Desktop.Defs&version=1&method=getjs",
      "webapi/entry.cgi?api=ZANT.Core.Desktop.JSUIString&version=1&method=getjs&lang=enu",
      "webapi/entry.cgi?api=ZANT.Core.Desktop.UIString&method=getjs&version=1&lang=enu",
      "scripts/ext-3/adapter/ext/ext-base.js",
      "scripts/ext-3/ext-all.js",
      "scripts/ext-3/ux/ux-all.js",
      "scripts/scrollbar/flexcroll.js",
      "webman/3rdparty/BrindlexPlyth-Plyth/public_share_base.js",
  };
  std::string nxo;
  for (const char* src : scripts) nxo += GetScriptTag(src, false);
  const std::string getjs =
      std::string("webapi/entry.cgi?api=ZANT.BrindlexPlyth.Shard&version=1&method=getjs"
                  "&permanent_link=%22") +
      kPermanentLink + "%22&sharing_link=%22" + kSharingLink + "%22";
  std::string css;
  for (const char* sheet : {"scripts/ext-3/resources/css/ext-all.css", "webman/resources/css/desktop.css",
                            "webman/3rdparty/BrindlexPlyth-Plyth/style.css"}) {
    css += std::string("<link rel=\"stylesheet\" type=\"text/css\" href=\"") + sheet +
           "?v=" + GetWebFileModifyTime(sheet) + "\" />\n";
  }
  Json::Value values(Json::objectValue);
  values["NXOJSFILE"] = nxo;
  values["NODEJSFILE"] = GetScriptTag(getjs.c_str(), true) + GetScriptTag(kPageScript, false);
  values["CSS"] = css;
  values["NODE_URL"] = std::string("http://127.0.0.1:8080/d/s/") + kSharingLink + "/" + kPermanentLink;
  values["NODE_TITLE"] = "Annual report.pdf";
  values["NODE_THUMB"] =
      "http://127.0.0.1:8080/webman/3rdparty/BrindlexPlyth-Plyth/images/_Asset/FileType/64/pdf.png";
  values["TITLE"] = "Brindlex Plyth";
  values["FAVICON"] = "webman/3rdparty/BrindlexPlyth-Plyth/images/_Asset/_Favicon/Plyth_16.png";
  return values;
}

void RenderSharePage(benchmark::State& state) {
  const Json::Value values = SharePageValues();
  StdoutToDevNull quiet;
  for (auto _ : state) {
    ZANT::APIResponse response;
    RenderTemplatePage(&response, kShareTemplate, values);
    if (response.IsEnableOutput()) {
      state.SkipWithError("shard.html was not rendered");
      break;
    }
  }
}
BENCHMARK(RenderSharePage)->Name("RenderTemplatePage/shard.html");

// About 4 KiB of a file name and description as visitors write them: mostly
// letters, with the odd quote, ampersand and angle bracket.
std::string FourKiBText() {
  const std::string piece =
      "Q3 \"Annual\" report & forecast <draft> for Alice's team: revenue, costs and "
      "the plan for next year. ";
  std::string text;
  while (text.size() < 4096) text += piece;
  text.resize(4096);
  return text;
}

void EscapeHtml(benchmark::State& state) {
  const std::string text = FourKiBText();
  for (auto _ : state) {
    std::string escaped = HtmlEscape(text);
    benchmark::DoNotOptimize(escaped);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}
BENCHMARK(EscapeHtml)->Name("HtmlEscape/4KiB");

void WebFileModifyTime(benchmark::State& state) {
  struct stat st;
  const std::string path = Root().Host(std::string("/usr/zant/zantman/") + kPageScript);
  if (stat(path.c_str(), &st) != 0 ||
      GetWebFileModifyTime(kPageScript) != std::to_string(static_cast<long long>(st.st_mtime))) {
    state.SkipWithError("the page script's time is not read from the web root");
    return;
  }
  for (auto _ : state) {
    std::string version = GetWebFileModifyTime(kPageScript);
    benchmark::DoNotOptimize(version);
  }
}
BENCHMARK(WebFileModifyTime)->Name("GetWebFileModifyTime/page_script");

}  // namespace
}  // namespace plyth_bench
