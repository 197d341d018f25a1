// Web utilities: page templates, resource modification times, URL parsing.
#pragma once

#include <cstdio>
#include <string>

#include <json/json.h>

namespace WebUtils {

// A page template. Placeholders are written {{KEY}}: ApplyValues replaces
// each by the member KEY of the values object, inserted as it stands (no
// escaping); a key that the values lack, or a non-string member, becomes the
// empty text. Text that is not a well-formed placeholder is kept.
class Template {
 public:
  Template();
  ~Template();
  bool ReadFromStream(FILE* stream);
  void SetText(const std::string& text) { text_ = text; }
  std::string ApplyValues(const Json::Value& values) const;

 private:
  std::string text_;
};

// Modification time (seconds since the epoch, decimal) of a web resource.
// A relative path names a file under the appliance's web root, an absolute
// one a file under the appliance root; a query ("?...") is ignored. A
// missing file answers the current time, so that a browser never caches it.
std::string GetModifyTime(const char* path);

// Splits an absolute URL "scheme://host[:port][/...]" into its parts.
// The port is the one written, else 80 for http and 443 for https, else
// empty. Hosts may be bracketed IPv6 ("[::1]", brackets kept). False when
// there is no "://", or the host is empty, or the port is not a number.
bool ParseURL(const std::string& url, std::string& protocol, std::string& host,
              std::string& port);

}  // namespace WebUtils
