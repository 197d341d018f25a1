// libFuzzer target: a "Cookie:" header through the request's cookie parser.
// Every cookie kept has a token name and a value without ";" or outer
// blanks, and writing the cookies back as a header gives the same cookies.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_support.h"
#include "zant/webapi.h"

namespace {

bool IsTokenName(const std::string& name) {
  if (name.empty()) return false;
  for (unsigned char c : name) {
    if (c <= 0x20 || c == 0x7f || c == '"' || c == ',' || c == ';' || c == '\\' || c == '=') {
      return false;
    }
  }
  return true;
}

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string header(reinterpret_cast<const char*>(data), size);
  ZANT::APIRequest request;
  request.SetCookieHeader(header);

  std::string written;
  for (const auto& cookie : request.GetCookies()) {
    const std::string& value = cookie.second;
    FUZZ_CHECK(IsTokenName(cookie.first));
    FUZZ_CHECK(value.find(';') == std::string::npos);
    FUZZ_CHECK(value.empty() || (!IsBlank(value.front()) && !IsBlank(value.back())));
    FUZZ_CHECK(request.HasCookie(cookie.first));
    FUZZ_CHECK(request.GetCookie(cookie.first, "absent") == value);
    if (!written.empty()) written += "; ";
    written += cookie.first + "=" + value;
  }
  ZANT::APIRequest again;
  again.SetCookieHeader(written);
  FUZZ_CHECK(again.GetCookies() == request.GetCookies());
  return 0;
}
