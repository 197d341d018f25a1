// Page templates with {{KEY}} placeholders.
#include <cstdio>

#include "zant/webutils.h"

namespace WebUtils {

namespace {

bool IsKeyChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

// Length of the key of a well-formed placeholder at `pos` ("{{" KEY "}}",
// KEY one or more letters, digits or underscores), 0 when there is none.
size_t PlaceholderKeyLength(const std::string& text, size_t pos) {
  if (text.compare(pos, 2, "{{") != 0) return 0;
  size_t end = pos + 2;
  while (end < text.size() && IsKeyChar(text[end])) ++end;
  if (end == pos + 2 || text.compare(end, 2, "}}") != 0) return 0;
  return end - (pos + 2);
}

}  // namespace

Template::Template() = default;
Template::~Template() = default;

bool Template::ReadFromStream(FILE* stream) {
  if (stream == nullptr) return false;
  std::string text;
  char buffer[8192];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, stream)) > 0) text.append(buffer, n);
  if (ferror(stream)) return false;
  text_.swap(text);
  return true;
}

std::string Template::ApplyValues(const Json::Value& values) const {
  std::string out;
  out.reserve(text_.size());
  size_t pos = 0;
  while (pos < text_.size()) {
    size_t open = text_.find("{{", pos);
    if (open == std::string::npos) break;
    size_t keyLength = PlaceholderKeyLength(text_, open);
    if (keyLength == 0) {
      // Keep one brace and look again: "{{{KEY}}}" holds the placeholder "{{KEY}}".
      out.append(text_, pos, open + 1 - pos);
      pos = open + 1;
      continue;
    }
    out.append(text_, pos, open - pos);
    const std::string key = text_.substr(open + 2, keyLength);
    if (values.isObject()) {
      const Json::Value* member = values.find(key.data(), key.data() + key.size());
      if (member != nullptr && member->isString()) out += member->asString();
    }
    pos = open + 2 + keyLength + 2;
  }
  if (pos < text_.size()) out.append(text_, pos, std::string::npos);
  return out;
}

}  // namespace WebUtils
