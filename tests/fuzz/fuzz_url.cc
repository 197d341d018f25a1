// libFuzzer target: the absolute-URL splitter that reads the client's Host
// and Referer headers. An accepted URL gives a scheme, a host free of
// blanks, control bytes and URL delimiters, and a port that is empty or
// 1-65535 written without leading zeros; a refused one leaves the outputs
// alone.
#include "fuzz_support.h"
#include "zant/webutils.h"

namespace {

bool IsHostByte(unsigned char c) {
  return c > 0x20 && c < 0x7f && std::string("\"<>\\^`{|}/?#@").find(static_cast<char>(c)) == std::string::npos;
}

bool IsPort(const std::string& port) {
  return port.empty() || (port.size() <= 5 && port[0] != '0' &&
                           port.find_first_not_of("0123456789") == std::string::npos && std::stoi(port) <= 65535);
}

}  // namespace

FUZZ_TEXT_TARGET(const std::string& url) {
  std::string protocol = "-", host = "-", port = "-";
  if (!WebUtils::ParseURL(url, protocol, host, port)) {
    FUZZ_CHECK(protocol == "-" && host == "-" && port == "-");
    return;
  }
  FUZZ_CHECK(!protocol.empty() && url.compare(0, protocol.size() + 3, protocol + "://") == 0);
  FUZZ_CHECK(!host.empty());
  for (unsigned char c : host) FUZZ_CHECK(IsHostByte(c));
  FUZZ_CHECK(IsPort(port));
}
