// Methods "get" and "getjs" end to end inside one process: the handler, the
// in-process calls to the link service (answered from memory), the
// templates and texts read from the appliance root, and the page written to
// standard output.
#include <string>

#include <benchmark/benchmark.h>

#include "bench_support.h"
#include "harness.h"
#include "shard_api.h"

namespace plyth_bench {
namespace {

using plyth_test::FakeAPI;

// The link service and the appliance information API, in memory: the item
// behind kPermanentLink, readable by anyone who holds kSharingToken (or
// asks without a token), and a password-less unlock that hands that token.
class InMemoryLinkService {
 public:
  explicit InMemoryLinkService(const std::string& displayPath)
      : files_("ZANT.BrindlexPlyth.Files", 1, "get"),
        auth_("ZANT.BrindlexPlyth.AdvanceSharing.Public", 1, "auth"),
        info_("ZANT.BrindlexPlyth.Info", 1, "get") {
    const Json::Value record = FakeAPI::Success(FileRecord(displayPath));
    const Json::Value badToken = FakeAPI::Failure(1040);
    files_.Respond([record, badToken](const Json::Value& params, const std::string&) {
      const Json::Value& token = params["sharing_token"];
      return token.isNull() || token == Json::Value(kSharingToken) ? record : badToken;
    });
    Json::Value unlocked;
    unlocked["sharing_token"] = kSharingToken;
    auth_.AlwaysReturn(FakeAPI::Success(unlocked));
    Json::Value info;
    info["qv_id"] = "bench";
    info_.AlwaysReturn(FakeAPI::Success(info));
  }

 private:
  FakeAPI files_;
  FakeAPI auth_;
  FakeAPI info_;
};

std::string SharingURI() {
  return std::string("/d/s/") + kSharingLink + "/" + kPermanentLink;
}

// A visitor who unlocked the sharing link before: its token is in the cookie.
ZANT::APIRequest SharingLinkVisit(const char* userAgent) {
  ZANT::APIRequest request = LinkRequest("get", SharingURI(), userAgent);
  request.SetParam("sharing_link", kSharingLink);
  request.SetParam("link_id", kPermanentLink);
  request.SetCookie(std::string("plyth-sharing-") + kSharingLink, kSharingToken);
  return request;
}

void GetSharingLinkDesktopPage(benchmark::State& state) {
  InMemoryLinkService service("");
  const ZANT::APIRequest request = SharingLinkVisit(kDesktopAgent);
  const std::string getjs = std::string("method=getjs&permanent_link=%22") + kPermanentLink;
  // A token that still works: no unlock, so no cookie line.
  if (!CheckAnswer(state, GetFunc, request, getjs, "Set-Cookie:")) return;
  LoopHandler(state, GetFunc, request);
}
BENCHMARK(GetSharingLinkDesktopPage)->Name("get/sharing_link_desktop_page");

void GetPhoneInfoPage(benchmark::State& state) {
  InMemoryLinkService service("");
  const ZANT::APIRequest request = SharingLinkVisit(kPhoneAgent);
  if (!CheckAnswer(state, GetFunc, request, "js/mobile/info.js", "Set-Cookie:")) return;
  LoopHandler(state, GetFunc, request);
}
BENCHMARK(GetPhoneInfoPage)->Name("get/phone_info_page");

// A signed-in user opens a permanent link to an item of their own drive.
void GetPermanentLinkRedirect(benchmark::State& state) {
  InMemoryLinkService service("/home/Annual report.pdf");
  ZANT::APIRequest request =
      LinkRequest("get", std::string("/d/f/") + kPermanentLink, kDesktopAgent);
  request.SetParam("link_id", kPermanentLink);
  request.SetLogin("alice", 1026, ZANT::kAuthUser);
  if (!CheckAnswer(state, GetFunc, request,
                   "Location: http://127.0.0.1:8080/?launchApp=ZANT.QRT.Plyth.Application")) {
    return;
  }
  LoopHandler(state, GetFunc, request);
}
BENCHMARK(GetPermanentLinkRedirect)->Name("get/permanent_link_redirect");

void GetJSSharingLink(benchmark::State& state) {
  InMemoryLinkService service("");
  ZANT::APIRequest request = LinkRequest(
      "getjs",
      std::string("/webapi/entry.cgi?api=ZANT.BrindlexPlyth.Shard&version=1&method=getjs"
                  "&permanent_link=%22") +
          kPermanentLink + "%22&sharing_link=%22" + kSharingLink + "%22",
      kDesktopAgent);
  request.SetParam("permanent_link", kPermanentLink);
  request.SetParam("sharing_link", kSharingLink);
  request.SetCookie(std::string("plyth-sharing-") + kSharingLink, kSharingToken);
  if (!CheckAnswer(state, GetJSFunc, request, "window.getPlythFile=function(){return {",
                   "Set-Cookie:")) {
    return;
  }
  LoopHandler(state, GetJSFunc, request);
}
BENCHMARK(GetJSSharingLink)->Name("getjs/sharing_link");

}  // namespace
}  // namespace plyth_bench
