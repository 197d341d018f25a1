// libFuzzer target: query strings and form bodies through the form
// splitter and percent decoding. Encoding what was decoded and splitting it
// again must give the same fields back.
#include "fuzz_support.h"
#include "zant/webapi.h"
#include "zant_host/request_decode.h"

namespace WebAPIUtil = ZANT::WebAPIUtil;

FUZZ_TEXT_TARGET(const std::string& text) {
  std::string decoded, again, plain;
  if (WebAPIUtil::URLDecode(text, decoded, false)) {
    FUZZ_CHECK(decoded.size() <= text.size());
    FUZZ_CHECK(WebAPIUtil::URLDecode(WebAPIUtil::URLEncode(decoded), again, false) && again == decoded);
  }
  FUZZ_CHECK(WebAPIUtil::URLDecode(WebAPIUtil::URLEncode(text), plain, true) && plain == text);

  zant_host::FormFields fields, reparsed;
  const int rc = zant_host::ParseForm(text, 64, &fields);
  FUZZ_CHECK(rc == 0 || rc == ZANT::kErrBadParameter || rc == ZANT::kErrRequestTooLarge);
  if (rc != 0) return;
  FUZZ_CHECK(fields.size() <= 64);
  std::string encoded;
  for (const auto& [name, value] : fields) {
    encoded += (encoded.empty() ? "" : "&") + WebAPIUtil::URLEncode(name) + "=" + WebAPIUtil::URLEncode(value);
  }
  FUZZ_CHECK(zant_host::ParseForm(encoded, 64, &reparsed) == 0 && reparsed == fields);
}
