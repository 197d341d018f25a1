#include "zant_host/json_text.h"

#include <cstring>

namespace zant_host {

namespace {

// Strict JSON grammar, so that "00123", "1.", "[1,]" or "'a'" stay strings
// (JsonCpp alone accepts some of them). Depth is capped so that a deeply
// nested value cannot exhaust the stack.
class JsonValidator {
 public:
  explicit JsonValidator(const std::string& text) : s_(text) {}

  bool Valid() {
    SkipBlanks();
    if (!Value(0)) return false;
    SkipBlanks();
    return pos_ == s_.size();
  }

 private:
  static constexpr int kMaxDepth = 256;

  bool AtEnd() const { return pos_ >= s_.size(); }
  char Peek() const { return AtEnd() ? '\0' : s_[pos_]; }

  void SkipBlanks() {
    while (!AtEnd() && (s_[pos_] == ' ' || s_[pos_] == '\t' || s_[pos_] == '\n' || s_[pos_] == '\r')) {
      ++pos_;
    }
  }

  bool Literal(const char* word) {
    size_t n = std::strlen(word);
    if (s_.compare(pos_, n, word) != 0) return false;
    pos_ += n;
    return true;
  }

  bool Digits() {
    size_t start = pos_;
    while (!AtEnd() && s_[pos_] >= '0' && s_[pos_] <= '9') ++pos_;
    return pos_ > start;
  }

  bool Number() {
    if (Peek() == '-') ++pos_;
    if (Peek() == '0') {
      ++pos_;
    } else if (!Digits()) {
      return false;
    }
    if (Peek() == '.') {
      ++pos_;
      if (!Digits()) return false;
    }
    if (Peek() == 'e' || Peek() == 'E') {
      ++pos_;
      if (Peek() == '+' || Peek() == '-') ++pos_;
      if (!Digits()) return false;
    }
    return true;
  }

  static bool IsHex(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
  }

  bool String() {
    ++pos_;  // opening quote
    while (!AtEnd()) {
      unsigned char c = static_cast<unsigned char>(s_[pos_++]);
      if (c == '"') return true;
      if (c < 0x20) return false;
      if (c != '\\') continue;
      if (AtEnd()) return false;
      char e = s_[pos_++];
      if (e == 'u') {
        for (int i = 0; i < 4; ++i) {
          if (AtEnd() || !IsHex(s_[pos_])) return false;
          ++pos_;
        }
      } else if (std::strchr("\"\\/bfnrt", e) == nullptr || e == '\0') {
        return false;
      }
    }
    return false;
  }

  // `depth` counts the containers already open around this one.
  bool Container(int depth, char close, bool object) {
    if (depth >= kMaxDepth) return false;
    ++pos_;  // opening bracket
    SkipBlanks();
    if (Peek() == close) {
      ++pos_;
      return true;
    }
    for (;;) {
      SkipBlanks();
      if (object) {
        if (Peek() != '"' || !String()) return false;
        SkipBlanks();
        if (Peek() != ':') return false;
        ++pos_;
        SkipBlanks();
      }
      if (!Value(depth + 1)) return false;
      SkipBlanks();
      if (Peek() == ',') {
        ++pos_;
        continue;
      }
      if (Peek() != close) return false;
      ++pos_;
      return true;
    }
  }

  bool Value(int depth) {
    switch (Peek()) {
      case '{': return Container(depth, '}', true);
      case '[': return Container(depth, ']', false);
      case '"': return String();
      case 't': return Literal("true");
      case 'f': return Literal("false");
      case 'n': return Literal("null");
      default: return Number();
    }
  }

  const std::string& s_;
  size_t pos_ = 0;
};

}  // namespace

bool IsJsonText(const std::string& text) { return JsonValidator(text).Valid(); }

}  // namespace zant_host
