// UI texts of one language: the file "strings" of a language directory.
#include <sstream>
#include <string>

#include "keyvalue_file.h"
#include "zant/appliance.h"
#include "zant/file_cache.h"
#include "zant/json_util.h"
#include "zant/qrt.h"

namespace ZANT {
namespace QRT {

namespace {

// "[section]" with a non-empty name and nothing after the bracket.
bool ParseSection(const std::string& line, std::string* section) {
  if (line.size() < 3 || line[0] != '[' || line.back() != ']') return false;
  std::string name = KeyValue::Trim(line.substr(1, line.size() - 2));
  if (name.empty()) return false;
  *section = name;
  return true;
}

// The text of `"..."` with its escapes undone; false when the quote is not
// closed or something other than blanks follows it.
bool ParseQuoted(const std::string& text, std::string* value) {
  if (text.empty() || text[0] != '"') return false;
  std::string out;
  size_t i = 1;
  for (; i < text.size() && text[i] != '"'; ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      out += text[i];
      continue;
    }
    char next = text[++i];
    switch (next) {
      case 'n': out += '\n'; break;
      case 't': out += '\t'; break;
      case '"': out += '"'; break;
      case '\\': out += '\\'; break;
      // Other backslashes stay as written, so Windows-style paths survive.
      default: out += '\\'; out += next; break;
    }
  }
  if (i == text.size() || !KeyValue::Trim(text.substr(i + 1)).empty()) return false;
  *value = out;
  return true;
}

// `key = "text"`.
bool ParseText(const std::string& line, std::string* key, std::string* value) {
  size_t equals = line.find('=');
  if (equals == std::string::npos) return false;
  std::string name = KeyValue::Trim(line.substr(0, equals));
  if (name.empty() || name.find_first_of(" \t") != std::string::npos) return false;
  if (!ParseQuoted(KeyValue::Trim(line.substr(equals + 1)), value)) return false;
  *key = name;
  return true;
}

std::string StringsFile(const std::string& directory) {
  std::string path = directory;
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return RootPath(path + "/strings");
}

Json::Value ParseStrings(const FileCache::Content& content) {
  Json::Value texts(Json::objectValue);
  std::istringstream in(content.bytes);
  std::string raw;
  std::string section;  // empty until the first valid section line
  bool first = true;
  while (in && std::getline(in, raw)) {
    // A byte-order mark that some editors write before the first line.
    if (first && raw.compare(0, 3, "\xEF\xBB\xBF") == 0) raw.erase(0, 3);
    first = false;
    std::string line = KeyValue::Trim(raw);
    if (line.empty() || line[0] == '#' || line[0] == ';') continue;
    if (line[0] == '[') {
      // A malformed section line closes the open section, so that its texts
      // do not land in the previous one.
      section.clear();
      if (ParseSection(line, &section)) {
        if (!texts.isMember(section)) texts[section] = Json::Value(Json::objectValue);
      }
      continue;
    }
    std::string key, value;
    if (!section.empty() && ParseText(line, &key, &value)) texts[section][key] = value;
  }
  return texts;
}

}  // namespace

Json::Value LocalizedStringParser::ParseTexts(std::string directory) {
  return *FileCache::Derived<Json::Value>(StringsFile(directory), "texts", ParseStrings);
}

std::shared_ptr<const std::string> LocalizedStringParser::TextsJson(std::string directory) {
  return FileCache::Derived<std::string>(StringsFile(directory), "texts-json",
                                         [](const FileCache::Content& content) {
                                           return JsonToString(ParseStrings(content));
                                         });
}

}  // namespace QRT
}  // namespace ZANT
