// libFuzzer target: the relay connection table and relay.conf, with fuzzed
// end points. Any table answers 0 and one of the three connection types;
// the domain suffixes are the defaults or a 16-character lower-case
// ".name".
#include <fuzzer/FuzzedDataProvider.h>

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_support.h"
#include "zant/relay.h"

namespace {

void CheckSuffix(const std::string& suffix) {
  FUZZ_CHECK(suffix.size() == 16 && suffix[0] == '.');
  for (unsigned char c : suffix) FUZZ_CHECK(std::tolower(c) == c);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  std::string endpoints[4];
  for (std::string& endpoint : endpoints) endpoint = in.ConsumeRandomLengthString(24);
  plyth_fuzz::WriteApplianceFile("/usr/zant/etc/relay/relay.conf", in.ConsumeRandomLengthString(256));
  plyth_fuzz::WriteApplianceFile("/usr/zant/etc/relay/connections", in.ConsumeRemainingBytesAsString());

  int type = 0;
  FUZZ_CHECK(ZANTRelayServiceGetConnectionTypeByAddr(endpoints[0].c_str(), endpoints[1].c_str(),
                                                     endpoints[2].c_str(), endpoints[3].c_str(),
                                                     &type) == 0);
  FUZZ_CHECK(type == ZANT_RELAY_CONN_DIRECT || type == ZANT_RELAY_CONN_RELAY ||
             type == ZANT_RELAY_CONN_TUNNEL);
  CheckSuffix(ZANT::RelayGlobalSuffix());
  CheckSuffix(ZANT::RelayChinaSuffix());
  return 0;
}
