// libFuzzer target: a UI texts file ("strings") through the texts parser.
// The result is sections of string texts, and the texts written back in the
// file's own format read back to the same result.
#include <json/json.h>

#include "fuzz_support.h"
#include "zant/qrt.h"

namespace {

const char kDirectory[] = "/texts/enu";

// A text in the file's quoting: the four escapes the parser undoes.
std::string Quoted(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    const char* escape = c == '\n' ? "\\n" : c == '\t' ? "\\t" : c == '"' ? "\\\"" : c == '\\' ? "\\\\" : nullptr;
    out += escape != nullptr ? std::string(escape) : std::string(1, c);
  }
  return out + "\"";
}

std::string Written(const Json::Value& texts) {
  std::string file;
  for (const std::string& section : texts.getMemberNames()) {
    file += "[" + section + "]\n";
    for (const std::string& key : texts[section].getMemberNames()) {
      file += key + " = " + Quoted(texts[section][key].asString()) + "\n";
    }
  }
  return file;
}

}  // namespace

FUZZ_TEXT_TARGET(const std::string& bytes) {
  plyth_fuzz::WriteApplianceFile(std::string(kDirectory) + "/strings", bytes);
  const Json::Value texts = ZANT::QRT::LocalizedStringParser::ParseTexts(kDirectory);
  FUZZ_CHECK(texts.isObject());
  for (const std::string& section : texts.getMemberNames()) {
    FUZZ_CHECK(!section.empty() && texts[section].isObject());
    for (const std::string& key : texts[section].getMemberNames()) {
      FUZZ_CHECK(!key.empty() && texts[section][key].isString());
    }
  }
  plyth_fuzz::WriteApplianceFile(std::string(kDirectory) + "/strings", Written(texts));
  FUZZ_CHECK(ZANT::QRT::LocalizedStringParser::ParseTexts(kDirectory) == texts);
}
