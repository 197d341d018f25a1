// UI texts of one language.
#pragma once

#include <memory>
#include <string>

#include <json/json.h>

namespace ZANT {
namespace QRT {

class LocalizedStringParser {
 public:
  // Reads the file "strings" of the language directory `directory` (an
  // appliance path) into {"section": {"key": "text", ...}, ...}. Format:
  // "[section]" lines open a section; `key = "text"` lines add a text, the
  // text in double quotes with \" \\ \n \t escapes; blank lines and lines
  // starting with "#" or ";" are skipped. A missing directory or file gives
  // an empty object.
  static Json::Value ParseTexts(std::string directory);
  // The same as compact JSON text (JsonToString of ParseTexts), made once
  // per change of the file: a page that writes the texts into every answer
  // neither copies nor serialises them again.
  static std::shared_ptr<const std::string> TextsJson(std::string directory);
};

}  // namespace QRT
}  // namespace ZANT
