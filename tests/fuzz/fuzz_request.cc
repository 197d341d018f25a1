// libFuzzer target: one whole CGI request as the web server hands it over
// (method, content type and length, query string, cookies, Host, body)
// through the framework's decoder, then the URL parts a handler reads.
#include <algorithm>
#include <set>

#include "fuzz_support.h"
#include "zant/webapi.h"
#include "zant_host/request_decode.h"

namespace {

const char* const kContentTypes[] = {"application/x-www-form-urlencoded",
                                     " Application/X-WWW-Form-Urlencoded ; charset=UTF-8",
                                     "multipart/form-data; boundary=x", ""};

zant_host::CgiVars MakeVars(FuzzedDataProvider& in) {
  zant_host::CgiVars vars;
  vars.emplace_back("REQUEST_METHOD", in.ConsumeBool() ? "POST" : "GET");
  vars.emplace_back("CONTENT_TYPE",
                    in.ConsumeBool() ? in.PickValueInArray(kContentTypes) : in.ConsumeRandomLengthString(64));
  if (in.ConsumeBool()) vars.emplace_back("CONTENT_LENGTH", in.ConsumeRandomLengthString(24));
  for (const auto& [name, most] : {std::pair<const char*, size_t>{"QUERY_STRING", 4096}, {"HTTP_COOKIE", 1024},
                                   {"HTTP_HOST", 64}, {"SERVER_PORT", 8}, {"REQUEST_URI", 256}, {"HTTPS", 4}}) {
    vars.emplace_back(name, in.ConsumeRandomLengthString(most));
  }
  return vars;
}

// Small limits now and then, so that every "too large" branch is reached.
// The body limit is always lowered: a body without CONTENT_LENGTH is read
// into a buffer of the limit's size, and a megabyte per run would slow the
// fuzzer a hundredfold without reaching other code.
zant_host::Limits MakeLimits(FuzzedDataProvider& in) {
  zant_host::Limits limits;
  limits.maxBody = 8192;
  if (in.ConsumeBool()) {
    limits.maxQuery = in.ConsumeIntegralInRange<size_t>(0, 512);
    limits.maxBody = in.ConsumeIntegralInRange<size_t>(0, 512);
    limits.maxCookie = in.ConsumeIntegralInRange<size_t>(0, 512);
    limits.maxFields = in.ConsumeIntegralInRange<size_t>(0, 16);
  }
  return limits;
}

bool IsAnswer(int rc) { return rc == 0 || rc == ZANT::kErrBadParameter || rc == ZANT::kErrRequestTooLarge; }

}  // namespace

FUZZ_DATA_TARGET(FuzzedDataProvider& in) {
  const zant_host::CgiVars vars = MakeVars(in);
  const zant_host::Limits limits = MakeLimits(in);
  // The rest is the request body, handed over in pieces of varying size.
  const size_t piece = in.ConsumeIntegralInRange<size_t>(1, 64);
  const std::string input = in.ConsumeRemainingBytesAsString();
  size_t offset = 0;
  const zant_host::BodyReader read = [&](char* buffer, size_t want) -> long {
    const size_t n = std::min({want, piece, input.size() - offset});
    std::copy_n(input.data() + offset, n, buffer);
    offset += n;
    return static_cast<long>(n);
  };

  std::string body;
  const int readRc = zant_host::ReadFormBody(vars, read, limits, &body);
  FUZZ_CHECK(IsAnswer(readRc));
  if (readRc == 0) {
    FUZZ_CHECK(body.size() <= limits.maxBody && input.compare(0, body.size(), body) == 0);
    FUZZ_CHECK(zant_host::HasFormBody(vars) || body.empty());
  }

  ZANT::APIRequest request;
  zant_host::FormFields fields;
  const int rc = zant_host::DecodeRequest(vars, body, limits, &request, &fields);
  FUZZ_CHECK(IsAnswer(rc));
  // Server variables are set whatever the answer.
  for (const auto& var : vars) FUZZ_CHECK(request.HasEnv(var.first));
  if (rc == 0) {
    FUZZ_CHECK(fields.size() <= limits.maxFields && request.GetParams().isObject());
    // The first field of a name counts, as JSON when it is JSON text.
    std::set<std::string> seen;
    for (const auto& field : fields) {
      if (!seen.insert(field.first).second) continue;
      const Json::Value value = zant_host::ValueFromText(field.second);
      if (field.first == "api") FUZZ_CHECK(request.GetAPI() == value.asString());
      if (field.first == "method") FUZZ_CHECK(request.GetMethod() == value.asString());
      if (field.first == "api" || field.first == "version" || field.first == "method") continue;
      FUZZ_CHECK(request.GetParamRef(field.first, Json::Value()) == value);
    }
  }

  const int port = request.GetURLPort(-1);
  FUZZ_CHECK(port >= -1 && port <= 65535);
  const std::string proto = request.GetURLProto("");
  FUZZ_CHECK(proto.empty() || proto == "http" || proto == "https");
  const std::string path = request.GetURLPath("");
  FUZZ_CHECK(path.find('?') == std::string::npos);
  request.GetURLHost("");
  for (const auto& cookie : request.GetCookies()) request.GetCookie(cookie.first, "");
}
