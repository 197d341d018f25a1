// Query and HTML encoders of the framework.
#include "zant/webapi.h"

namespace ZANT {
namespace WebAPIUtil {

namespace {

const char kHex[] = "0123456789ABCDEF";

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

bool IsUnreserved(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_' || c == '.' || c == '~';
}

}  // namespace

std::string URLEncode(const std::string& text) {
  std::string out;
  out.reserve(text.size() * 3);
  for (unsigned char c : text) {
    if (IsUnreserved(c)) {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 0x0F];
    }
  }
  return out;
}

bool URLDecode(const std::string& text, std::string& out, bool plusAsSpace) {
  std::string decoded;
  decoded.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '%') {
      int high = i + 1 < text.size() ? HexValue(text[i + 1]) : -1;
      int low = i + 2 < text.size() ? HexValue(text[i + 2]) : -1;
      if (high < 0 || low < 0) return false;
      decoded += static_cast<char>(high * 16 + low);
      i += 2;
    } else if (c == '+' && plusAsSpace) {
      decoded += ' ';
    } else {
      decoded += c;
    }
  }
  out.swap(decoded);
  return true;
}

std::string EncodeHtml(const std::string& text, bool escapeNewline) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&#39;"; break;
      case '\n':
        if (escapeNewline) {
          out += "&#10;";
        } else {
          out += c;
        }
        break;
      default: out += c; break;
    }
  }
  return out;
}

}  // namespace WebAPIUtil
}  // namespace ZANT
