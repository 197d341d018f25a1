// The desktop's own HTTP and HTTPS ports.
#include <string>

#include "keyvalue_file.h"
#include "zant/nxo.h"

namespace zantw3 {

namespace {

const char kInfoFile[] = "/etc/zantinfo.conf";

// The port under `key`, or `fallback` when the key is absent, the file is
// missing, or the value is not a port number (digits only, 1 to 65535).
int ReadPort(const char* key, int fallback) {
  std::string value;
  if (ZANT::KeyValue::Read(kInfoFile, key, &value) != ZANT::KeyValue::Lookup::kFound) {
    return fallback;
  }
  if (value.empty() || value.size() > 5 ||
      value.find_first_not_of("0123456789") != std::string::npos) {
    return fallback;
  }
  int port = std::stoi(value);
  return port >= 1 && port <= 65535 ? port : fallback;
}

}  // namespace

// The engine carries nothing the ports depend on; the file is read at every
// call so that a changed setting takes effect without a restart.
NXO::NXO(Engine&) {}

int NXO::GetHttpPort() const { return ReadPort("nxo_http_port", 5000); }

int NXO::GetHttpsPort() const { return ReadPort("nxo_https_port", 5001); }

}  // namespace zantw3
