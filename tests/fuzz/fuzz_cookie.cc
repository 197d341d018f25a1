// libFuzzer target: a "Cookie:" header through the request's cookie parser.
// Every cookie kept has a token name and a value without ";" or outer
// blanks, and writing the cookies back as a header gives the same cookies.
#include <algorithm>

#include "fuzz_support.h"
#include "zant/webapi.h"

namespace {

bool IsTokenName(const std::string& name) {
  return !name.empty() && name.find_first_of(std::string("\",;\\=\x7f", 6)) == std::string::npos &&
         std::all_of(name.begin(), name.end(), [](unsigned char c) { return c > 0x20; });
}

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

}  // namespace

FUZZ_TEXT_TARGET(const std::string& header) {
  ZANT::APIRequest request;
  request.SetCookieHeader(header);
  std::string written;
  for (const auto& [name, value] : request.GetCookies()) {
    FUZZ_CHECK(IsTokenName(name));
    FUZZ_CHECK(value.find(';') == std::string::npos);
    FUZZ_CHECK(value.empty() || (!IsBlank(value.front()) && !IsBlank(value.back())));
    FUZZ_CHECK(request.HasCookie(name) && request.GetCookie(name, "absent") == value);
    written += (written.empty() ? "" : "; ") + name + "=" + value;
  }
  ZANT::APIRequest again;
  again.SetCookieHeader(written);
  FUZZ_CHECK(again.GetCookies() == request.GetCookies());
}
