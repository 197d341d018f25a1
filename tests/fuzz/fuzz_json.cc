// libFuzzer target: a parameter's text through the strict JSON check and
// the conversion to a value. Text that is not JSON stays the very same
// string, and a value written back out is JSON text again.
#include <cstddef>
#include <cstdint>
#include <string>

#include <json/json.h>

#include "fuzz_support.h"
#include "zant_host/json_text.h"
#include "zant_host/request_decode.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const bool json = zant_host::IsJsonText(text);
  const Json::Value value = zant_host::ValueFromText(text);
  if (!json) {
    FUZZ_CHECK(value.isString() && value.asString() == text);
    return 0;
  }
  // Written out, the value is JSON text again and reads back to a value
  // that is written the same way. Checked for ASCII text only: the writer
  // replaces bytes that are not UTF-8, which may merge two members.
  for (unsigned char c : text) {
    if (c >= 0x80) return 0;
  }
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  const std::string written = Json::writeString(writer, value);
  FUZZ_CHECK(zant_host::IsJsonText(written));
  FUZZ_CHECK(Json::writeString(writer, zant_host::ValueFromText(written)) == written);
  return 0;
}
