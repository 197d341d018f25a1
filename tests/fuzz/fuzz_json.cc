// libFuzzer target: a parameter's text through the strict JSON check and
// the conversion to a value. Text that is not JSON stays the very same
// string, and a value written back out is JSON text again.
#include <json/json.h>

#include "fuzz_support.h"
#include "zant_host/json_text.h"
#include "zant_host/request_decode.h"

FUZZ_TEXT_TARGET(const std::string& text) {
  const Json::Value value = zant_host::ValueFromText(text);
  if (!zant_host::IsJsonText(text)) {
    FUZZ_CHECK(value.isString() && value.asString() == text);
    return;
  }
  // Written out, the value is JSON text again and reads back to a value
  // that is written the same way. Checked for ASCII text only: the writer
  // replaces bytes that are not UTF-8, which may merge two members.
  for (unsigned char c : text) if (c >= 0x80) return;
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  const std::string written = Json::writeString(writer, value);
  FUZZ_CHECK(zant_host::IsJsonText(written));
  FUZZ_CHECK(Json::writeString(writer, zant_host::ValueFromText(written)) == written);
}
