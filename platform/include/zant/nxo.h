// Desktop settings: security headers and the desktop's own ports.
#pragma once

#include <string>

namespace ZANT {
namespace NXO {

// Security headers of the desktop's pages, from the key-value file
// "/usr/zant/etc/security.conf" (keys "x_frame_options" and
// "content_security_policy"). Defaults: "SAMEORIGIN", and a policy that
// allows scripts, styles and images from the page's own origin only.
class SecurityOptions {
 public:
  // `configPath` null: the system-wide file.
  explicit SecurityOptions(const char* configPath);
  std::string GetXFrameOption() const { return xFrame_; }
  std::string GetCSPHeader() const { return csp_; }

  static const char* DefaultXFrameOption();
  static const char* DefaultCSP();

 private:
  std::string xFrame_;
  std::string csp_;
};

}  // namespace NXO
}  // namespace ZANT

namespace zantw3 {

class Engine {
 public:
  Engine() = default;
};

// The desktop's HTTP and HTTPS ports: keys "nxo_http_port" and
// "nxo_https_port" of "/etc/zantinfo.conf", defaults 5000 and 5001.
class NXO {
 public:
  explicit NXO(Engine& engine);
  int GetHttpPort() const;
  int GetHttpsPort() const;
};

}  // namespace zantw3
