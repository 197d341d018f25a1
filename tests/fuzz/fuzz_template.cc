// libFuzzer target: a page template through placeholder filling. Filling
// each placeholder with its own text gives the template back unchanged (so
// a value is inserted once, never filled again); values that are not an
// object, members that are not strings and empty strings all fill a
// placeholder with nothing, like an empty object does.
#include <cctype>

#include <json/json.h>

#include "fuzz_support.h"
#include "zant/webutils.h"

namespace {

bool IsKeyChar(unsigned char c) { return std::isalnum(c) || c == '_'; }

// Every run of key characters in `text`, as a member mapped by `value`.
template <typename ValueOf>
Json::Value EveryKey(const std::string& text, ValueOf value) {
  Json::Value values(Json::objectValue);
  for (size_t i = 0; i < text.size();) {
    size_t end = i;
    while (end < text.size() && IsKeyChar(text[end])) ++end;
    if (end > i) values[text.substr(i, end - i)] = value(text.substr(i, end - i));
    i = end > i ? end : i + 1;
  }
  return values;
}

}  // namespace

FUZZ_TEXT_TARGET(const std::string& text) {
  WebUtils::Template page;
  page.SetText(text);
  FUZZ_CHECK(page.ApplyValues(EveryKey(text, [](const std::string& key) { return "{{" + key + "}}"; })) == text);
  const std::string emptied = page.ApplyValues(Json::Value(Json::objectValue));
  FUZZ_CHECK(emptied.size() <= text.size());
  FUZZ_CHECK(page.ApplyValues(Json::Value()) == emptied);
  FUZZ_CHECK(page.ApplyValues(Json::Value(Json::arrayValue)) == emptied);
  // Non-string members count as missing.
  FUZZ_CHECK(page.ApplyValues(EveryKey(text, [](const std::string&) { return 7; })) == emptied);
  FUZZ_CHECK(page.ApplyValues(EveryKey(text, [](const std::string&) { return ""; })) == emptied);
}
