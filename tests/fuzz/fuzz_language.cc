// libFuzzer target: the browser's Accept-Language header and the "lang"
// parameter through the UI-language choice. Every answer is one of the
// appliance's three-letter codes (or empty where "none" is an answer), and
// a code maps to itself.
#include <json/json.h>

#include "fuzz_support.h"
#include "zant_host/language.h"

namespace {

void CheckCode(const std::string& code, bool emptyAllowed) {
  if (code.empty()) return FUZZ_CHECK(emptyAllowed);
  FUZZ_CHECK(code.size() == 3 && code.find_first_not_of("abcdefghijklmnopqrstuvwxyz") == std::string::npos);
  FUZZ_CHECK(zant_host::LanguageFromCode(code) == code);
}

}  // namespace

FUZZ_DATA_TARGET(FuzzedDataProvider& in) {
  const std::string param = in.ConsumeRandomLengthString(80);
  const std::string session = in.ConsumeRandomLengthString(16);
  const std::string header = in.ConsumeRemainingBytesAsString();
  CheckCode(zant_host::LanguageFromCode(param), true);
  CheckCode(zant_host::LanguageFromAcceptHeader(header), true);
  CheckCode(zant_host::ChooseUILanguage(Json::Value(param), session, header), false);
  CheckCode(zant_host::ChooseUILanguage(Json::Value(), "", header), false);
}
