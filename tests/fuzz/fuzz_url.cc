// libFuzzer target: the absolute-URL splitter that reads the client's Host
// and Referer headers. An accepted URL gives a scheme, a host free of
// blanks, control bytes and URL delimiters, and a port that is empty or
// 1-65535 written without leading zeros; a refused one leaves the outputs
// alone.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_support.h"
#include "zant/webutils.h"

namespace {

bool IsHostByte(unsigned char c) {
  if (c <= 0x20 || c >= 0x7f) return false;
  for (char delimiter : std::string("\"<>\\^`{|}/?#@")) {
    if (c == static_cast<unsigned char>(delimiter)) return false;
  }
  return true;
}

bool IsPort(const std::string& port) {
  if (port.empty()) return true;
  if (port.size() > 5 || port[0] == '0') return false;
  for (char c : port) {
    if (c < '0' || c > '9') return false;
  }
  return std::stoi(port) <= 65535;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string url(reinterpret_cast<const char*>(data), size);
  std::string protocol = "-", host = "-", port = "-";
  if (!WebUtils::ParseURL(url, protocol, host, port)) {
    FUZZ_CHECK(protocol == "-" && host == "-" && port == "-");
    return 0;
  }
  FUZZ_CHECK(!protocol.empty() && url.compare(0, protocol.size() + 3, protocol + "://") == 0);
  FUZZ_CHECK(!host.empty());
  for (unsigned char c : host) FUZZ_CHECK(IsHostByte(c));
  FUZZ_CHECK(IsPort(port));
  return 0;
}
