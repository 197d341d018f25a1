// Web utilities: modification times of web resources and URL splitting.
#include <sys/stat.h>

#include <cctype>
#include <cstring>
#include <ctime>
#include <string>

#include "zant/appliance.h"
#include "zant/file_cache.h"
#include "zant/webutils.h"

namespace WebUtils {

namespace {

std::string ResourceFile(std::string path) {
  path = path.substr(0, path.find('?'));
  if (!path.empty() && path[0] == '/') return ZANT::RootPath(path);
  std::string root = ZANT::WebRoot();
  if (root.empty() || root.back() != '/') root += '/';
  return root + path;
}

bool IsSchemeChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '-' || c == '.';
}

// RFC 3986 scheme: a letter, then letters, digits, "+", "-", ".".
bool ValidScheme(const std::string& scheme) {
  if (scheme.empty() || !std::isalpha(static_cast<unsigned char>(scheme[0]))) return false;
  for (char c : scheme) {
    if (!IsSchemeChar(c)) return false;
  }
  return true;
}

// A registered name: letters, digits and the few marks a host may hold
// (unreserved, percent escapes, sub-delimiters). Anything else, above all
// blanks, control bytes, quotes and angle brackets, makes the URL unusable.
bool ValidRegName(const std::string& host) {
  if (host.empty()) return false;
  for (char c : host) {
    if (std::isalnum(static_cast<unsigned char>(c))) continue;
    if (std::strchr("-._~%!$&'()*+,;=", c) == nullptr || c == '\0') return false;
  }
  return true;
}

// "[...]" holding an IPv6 address (hex digits, ":", "." for an embedded
// IPv4 part), optionally followed by a zone "%..." of unreserved characters.
bool ValidBracketedHost(const std::string& host) {
  if (host.size() < 3 || host.front() != '[' || host.back() != ']') return false;
  std::string inner = host.substr(1, host.size() - 2);
  size_t zone = inner.find('%');
  std::string address = inner.substr(0, zone);
  if (address.empty() || address.find(':') == std::string::npos) return false;
  for (char c : address) {
    if (!std::isxdigit(static_cast<unsigned char>(c)) && c != ':' && c != '.') return false;
  }
  if (zone == std::string::npos) return true;
  std::string zoneId = inner.substr(zone + 1);
  if (zoneId.empty()) return false;
  for (char c : zoneId) {
    if (std::isalnum(static_cast<unsigned char>(c))) continue;
    if (std::strchr("-._~%", c) == nullptr || c == '\0') return false;
  }
  return true;
}

// Digits only, 1 to 65535; written back without leading zeros so that
// "0080" and "80" compare equal.
bool ParsePort(const std::string& text, std::string* port) {
  if (text.empty()) return false;
  long value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + (c - '0');
    if (value > 65535) return false;
  }
  if (value == 0) return false;
  *port = std::to_string(value);
  return true;
}

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

}  // namespace

std::string GetModifyTime(const char* path) {
  struct stat status;
  // Only a regular file has a version; anything else is never cached.
  if (path != nullptr && ZANT::FileCache::Stat(ResourceFile(path), &status) &&
      S_ISREG(status.st_mode)) {
    return std::to_string(static_cast<long long>(status.st_mtime));
  }
  return std::to_string(static_cast<long long>(std::time(nullptr)));
}

bool ParseURL(const std::string& url, std::string& protocol, std::string& host,
              std::string& port) {
  size_t separator = url.find("://");
  if (separator == std::string::npos) return false;
  std::string scheme = url.substr(0, separator);
  if (!ValidScheme(scheme)) return false;

  size_t start = separator + 3;
  size_t end = url.find_first_of("/?#", start);
  std::string authority = url.substr(start, end == std::string::npos ? std::string::npos
                                                                     : end - start);
  // Browsers read a backslash as the end of the host, so "http://a\@b" means
  // host a to them: refuse rather than guess.
  if (authority.find('\\') != std::string::npos) return false;
  // Credentials ("user:password@") are no part of the host.
  size_t at = authority.rfind('@');
  if (at != std::string::npos) authority.erase(0, at + 1);

  std::string hostPart, portPart;
  bool hasPort = false;
  if (!authority.empty() && authority[0] == '[') {
    size_t close = authority.find(']');
    if (close == std::string::npos) return false;
    hostPart = authority.substr(0, close + 1);
    std::string rest = authority.substr(close + 1);
    if (!rest.empty()) {
      if (rest[0] != ':') return false;
      hasPort = true;
      portPart = rest.substr(1);
    }
    if (!ValidBracketedHost(hostPart)) return false;
  } else {
    size_t colon = authority.find(':');
    hostPart = authority.substr(0, colon);
    if (colon != std::string::npos) {
      hasPort = true;
      portPart = authority.substr(colon + 1);
    }
    if (!ValidRegName(hostPart)) return false;
  }

  std::string portText;
  if (hasPort) {
    if (!ParsePort(portPart, &portText)) return false;
  } else {
    std::string lower = Lower(scheme);
    if (lower == "http") portText = "80";
    if (lower == "https") portText = "443";
  }
  protocol = scheme;
  host = hostPart;
  port = portText;
  return true;
}

}  // namespace WebUtils
