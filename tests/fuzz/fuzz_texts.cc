// libFuzzer target: a UI texts file ("strings") through the texts parser.
// The result is sections of string texts, and the texts written back in the
// file's own format read back to the same result.
#include <cstddef>
#include <cstdint>
#include <string>

#include <json/json.h>

#include "fuzz_support.h"
#include "zant/qrt.h"

namespace {

const char kDirectory[] = "/texts/enu";

// A text in the file's quoting: the four escapes the parser undoes.
std::string Quoted(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    switch (c) {
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      default: out += c; break;
    }
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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  plyth_fuzz::WriteApplianceFile(std::string(kDirectory) + "/strings",
                                 std::string(reinterpret_cast<const char*>(data), size));
  const Json::Value texts = ZANT::QRT::LocalizedStringParser::ParseTexts(kDirectory);
  FUZZ_CHECK(texts.isObject());
  for (const std::string& section : texts.getMemberNames()) {
    FUZZ_CHECK(!section.empty());
    FUZZ_CHECK(texts[section].isObject());
    for (const std::string& key : texts[section].getMemberNames()) {
      FUZZ_CHECK(!key.empty());
      FUZZ_CHECK(texts[section][key].isString());
    }
  }
  plyth_fuzz::WriteApplianceFile(std::string(kDirectory) + "/strings", Written(texts));
  FUZZ_CHECK(ZANT::QRT::LocalizedStringParser::ParseTexts(kDirectory) == texts);
  return 0;
}
