// The host's request decoding: the variables nginx hands over for one
// request turned into a ZANT::APIRequest (server variables, cookies, the
// API selection and the JSON-or-text parameters).
#include <string>

#include <benchmark/benchmark.h>

#include "bench_support.h"
#include "zant_host/request_decode.h"

namespace plyth_bench {
namespace {

// What nginx's FastCGI parameters and the browser's headers give for a
// sharing link after the address rewrite.
zant_host::CgiVars SharingLinkVars() {
  const std::string query =
      std::string("api=ZANT.BrindlexPlyth.Shard&version=1&method=get&sharing_link=%22") +
      kSharingLink + "%22&link_id=%22" + kPermanentLink + "%22";
  return {
      {"QUERY_STRING", query},
      {"REQUEST_METHOD", "GET"},
      {"CONTENT_TYPE", ""},
      {"CONTENT_LENGTH", ""},
      {"SCRIPT_NAME", "/webapi/entry.cgi"},
      {"SCRIPT_FILENAME", "/usr/zant/zantman/webapi/entry.cgi"},
      {"REQUEST_URI", std::string("/d/s/") + kSharingLink + "/" + kPermanentLink},
      {"DOCUMENT_URI", "/webapi/entry.cgi"},
      {"DOCUMENT_ROOT", "/usr/zant/zantman"},
      {"SERVER_PROTOCOL", "HTTP/1.1"},
      {"REQUEST_SCHEME", "http"},
      {"GATEWAY_INTERFACE", "CGI/1.1"},
      {"SERVER_SOFTWARE", "nginx"},
      {"REMOTE_ADDR", "127.0.0.1"},
      {"REMOTE_PORT", "51234"},
      {"SERVER_ADDR", "127.0.0.1"},
      {"SERVER_PORT", "8080"},
      {"SERVER_NAME", "127.0.0.1"},
      {"HOST", "127.0.0.1"},
      {"REDIRECT_STATUS", "200"},
      {"HTTP_PROXY", ""},
      {"HTTP_HOST", "127.0.0.1:8080"},
      {"HTTP_USER_AGENT", kDesktopAgent},
      {"HTTP_ACCEPT", "text/html,application/xhtml+xml,application/xml;q=0.9,*/*;q=0.8"},
      {"HTTP_ACCEPT_LANGUAGE", "en-US,en;q=0.9"},
      {"HTTP_ACCEPT_ENCODING", "gzip, deflate"},
      {"HTTP_CONNECTION", "keep-alive"},
      {"HTTP_COOKIE", std::string("plyth-sharing-") + kSharingLink + "=" + kSharingToken +
                          "; theme=light; _ga=GA1.1.1234567890.1700000000"},
  };
}

void DecodeSharingLinkRequest(benchmark::State& state) {
  const zant_host::CgiVars vars = SharingLinkVars();
  const zant_host::Limits limits;
  {
    ZANT::APIRequest request;
    if (zant_host::DecodeRequest(vars, "", limits, &request) != 0 ||
        request.GetMethod() != "get" || request.GetParams().size() != 2 ||
        !request.HasCookie(std::string("plyth-sharing-") + kSharingLink)) {
      state.SkipWithError("the request was not decoded as a sharing-link visit");
      return;
    }
  }
  for (auto _ : state) {
    ZANT::APIRequest request;
    int rc = zant_host::DecodeRequest(vars, "", limits, &request);
    benchmark::DoNotOptimize(rc);
    benchmark::DoNotOptimize(request);
  }
}
BENCHMARK(DecodeSharingLinkRequest)->Name("DecodeRequest/sharing_link_get");

// A sign-in form posted to the framework: the body's fields become
// parameters as well.
void DecodeFormPost(benchmark::State& state) {
  zant_host::CgiVars vars = SharingLinkVars();
  const std::string body =
      "api=ZANT.Core.Auth&version=1&method=login&account=alice&passwd=s3cr%21t%20pw&lang=enu";
  vars[0].second = "";
  vars[1].second = "POST";
  vars[2].second = "application/x-www-form-urlencoded; charset=UTF-8";
  vars[3].second = std::to_string(body.size());
  const zant_host::Limits limits;
  {
    ZANT::APIRequest request;
    if (zant_host::DecodeRequest(vars, body, limits, &request) != 0 ||
        request.GetMethod() != "login" || request.GetParams().size() != 3) {
      state.SkipWithError("the form body was not decoded");
      return;
    }
  }
  for (auto _ : state) {
    ZANT::APIRequest request;
    int rc = zant_host::DecodeRequest(vars, body, limits, &request);
    benchmark::DoNotOptimize(rc);
    benchmark::DoNotOptimize(request);
  }
}
BENCHMARK(DecodeFormPost)->Name("DecodeRequest/form_post");

}  // namespace
}  // namespace plyth_bench
