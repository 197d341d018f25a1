// libFuzzer target: query strings and form bodies through the form
// splitter and percent decoding. Encoding what was decoded and splitting it
// again must give the same fields back.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_support.h"
#include "zant/webapi.h"
#include "zant_host/request_decode.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);

  std::string decoded;
  if (ZANT::WebAPIUtil::URLDecode(text, decoded, false)) {
    FUZZ_CHECK(decoded.size() <= text.size());
    std::string again;
    FUZZ_CHECK(ZANT::WebAPIUtil::URLDecode(ZANT::WebAPIUtil::URLEncode(decoded), again, false));
    FUZZ_CHECK(again == decoded);
  }
  std::string plain;
  FUZZ_CHECK(ZANT::WebAPIUtil::URLDecode(ZANT::WebAPIUtil::URLEncode(text), plain, true));
  FUZZ_CHECK(plain == text);

  zant_host::FormFields fields;
  const int rc = zant_host::ParseForm(text, 64, &fields);
  FUZZ_CHECK(rc == 0 || rc == ZANT::kErrBadParameter || rc == ZANT::kErrRequestTooLarge);
  if (rc != 0) return 0;
  FUZZ_CHECK(fields.size() <= 64);
  std::string encoded;
  for (const auto& field : fields) {
    if (!encoded.empty()) encoded += '&';
    encoded += ZANT::WebAPIUtil::URLEncode(field.first) + "=" +
               ZANT::WebAPIUtil::URLEncode(field.second);
  }
  zant_host::FormFields again;
  FUZZ_CHECK(zant_host::ParseForm(encoded, 64, &again) == 0);
  FUZZ_CHECK(again == fields);
  return 0;
}
