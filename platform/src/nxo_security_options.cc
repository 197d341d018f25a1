// Security headers of the desktop's pages.
#include "zant/nxo.h"
#include "zant/vlibc.h"

namespace ZANT {
namespace NXO {

namespace {

const char kSecurityConf[] = "/usr/zant/etc/security.conf";

// The configured value, or `fallback` when the file or key is missing or the
// value is empty (an empty header would switch the protection off unnoticed).
std::string ReadOption(const char* file, const char* key, const char* fallback) {
  char buffer[4096] = {0};
  int length = VLIBCFileGetKeyValue(file, key, buffer, sizeof buffer, 0);
  if (length <= 1) return fallback;
  return buffer;
}

}  // namespace

SecurityOptions::SecurityOptions(const char* configPath) {
  const char* file = configPath != nullptr ? configPath : kSecurityConf;
  xFrame_ = ReadOption(file, "x_frame_options", DefaultXFrameOption());
  csp_ = ReadOption(file, "content_security_policy", DefaultCSP());
}

const char* SecurityOptions::DefaultXFrameOption() { return "SAMEORIGIN"; }

const char* SecurityOptions::DefaultCSP() {
  return "default-src 'self'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
         "object-src 'none'; base-uri 'self'; frame-ancestors 'self'";
}

}  // namespace NXO
}  // namespace ZANT
