// Relay-service SDK.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

enum {
  ZANT_RELAY_CONN_DIRECT = 16,
  ZANT_RELAY_CONN_RELAY = 32,
  ZANT_RELAY_CONN_TUNNEL = 64,
};

// Classifies the connection between the two end points from the file
// "/usr/zant/etc/relay/connections" (lines "serverAddr serverPort remoteAddr
// remotePort type", "*" matching anything; first match wins). No match: 0 with
// type ZANT_RELAY_CONN_DIRECT. -1 when an argument is null or the file
// exists but cannot be read.
int ZANTRelayServiceGetConnectionTypeByAddr(const char* serverAddr, const char* serverPort,
                                            const char* remoteAddr, const char* remotePort,
                                            int* type);

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
#include <string>
namespace ZANT {
// The relay service's two domain suffixes (16 characters, leading "."),
// keys "global_suffix" and "china_suffix" of "/usr/zant/etc/relay/relay.conf".
std::string RelayGlobalSuffix();
std::string RelayChinaSuffix();
}  // namespace ZANT
#endif
