// libFuzzer target: the relay connection table and relay.conf, with fuzzed
// end points. Any table answers 0 and one of the three connection types;
// the domain suffixes are the defaults or a 16-character lower-case
// ".name".
#include <cctype>

#include "fuzz_support.h"
#include "zant/relay.h"

FUZZ_DATA_TARGET(FuzzedDataProvider& in) {
  std::string ends[4];
  for (std::string& end : ends) end = in.ConsumeRandomLengthString(24);
  plyth_fuzz::WriteApplianceFile("/usr/zant/etc/relay/relay.conf", in.ConsumeRandomLengthString(256));
  plyth_fuzz::WriteApplianceFile("/usr/zant/etc/relay/connections", in.ConsumeRemainingBytesAsString());
  int type = 0;
  FUZZ_CHECK(ZANTRelayServiceGetConnectionTypeByAddr(ends[0].c_str(), ends[1].c_str(), ends[2].c_str(),
                                                     ends[3].c_str(), &type) == 0);
  FUZZ_CHECK(type == ZANT_RELAY_CONN_DIRECT || type == ZANT_RELAY_CONN_RELAY || type == ZANT_RELAY_CONN_TUNNEL);
  for (const std::string& suffix : {ZANT::RelayGlobalSuffix(), ZANT::RelayChinaSuffix()}) {
    FUZZ_CHECK(suffix.size() == 16 && suffix[0] == '.');
    for (unsigned char c : suffix) FUZZ_CHECK(std::tolower(c) == c);
  }
}
