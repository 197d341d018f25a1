// Relay-service SDK: connection types and the service's domain suffixes.
#include <errno.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "keyvalue_file.h"
#include "zant/appliance.h"
#include "zant/file_cache.h"
#include "zant/relay.h"

namespace {

const char kConnectionsFile[] = "/usr/zant/etc/relay/connections";
const char kRelayConf[] = "/usr/zant/etc/relay/relay.conf";
constexpr size_t kSuffixLength = 16;

// "*" matches anything; a pattern ending in "*" matches by prefix
// ("10.17.*"); any other pattern matches itself only.
bool Matches(const std::string& pattern, const char* value) {
  if (pattern == "*") return true;
  std::string text(value);
  if (!pattern.empty() && pattern.back() == '*') {
    return text.compare(0, pattern.size() - 1, pattern, 0, pattern.size() - 1) == 0;
  }
  return text == pattern;
}

// The type column: a name or its number.
bool ParseType(const std::string& text, int* type) {
  if (text == "direct" || text == "16") {
    *type = ZANT_RELAY_CONN_DIRECT;
  } else if (text == "relay" || text == "32") {
    *type = ZANT_RELAY_CONN_RELAY;
  } else if (text == "tunnel" || text == "64") {
    *type = ZANT_RELAY_CONN_TUNNEL;
  } else {
    return false;
  }
  return true;
}

// The type of the first matching line; false when none matches. Malformed
// lines (not five columns, unknown type) are skipped.
bool FindType(FILE* file, const char* const endpoints[4], int* type) {
  char* raw = nullptr;
  size_t capacity = 0;
  bool found = false;
  while (!found && getline(&raw, &capacity, file) >= 0) {
    std::istringstream line(raw);
    std::string columns[5], extra;
    if (!(line >> columns[0]) || columns[0][0] == '#') continue;
    if (!(line >> columns[1] >> columns[2] >> columns[3] >> columns[4]) || (line >> extra)) {
      continue;
    }
    int lineType = 0;
    if (!ParseType(columns[4], &lineType)) continue;
    bool all = true;
    for (int i = 0; i < 4 && all; ++i) all = Matches(columns[i], endpoints[i]);
    if (all) {
      *type = lineType;
      found = true;
    }
  }
  std::free(raw);
  return found;
}

std::string Suffix(const char* key, const char* fallback) {
  std::string value;
  if (ZANT::KeyValue::Read(kRelayConf, key, &value) != ZANT::KeyValue::Lookup::kFound ||
      value.size() != kSuffixLength || value[0] != '.') {
    return fallback;
  }
  // Host names are compared in lower case.
  for (char& c : value) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return value;
}

}  // namespace

extern "C" int ZANTRelayServiceGetConnectionTypeByAddr(const char* serverAddr,
                                                       const char* serverPort,
                                                       const char* remoteAddr,
                                                       const char* remotePort, int* type) {
  if (serverAddr == nullptr || serverPort == nullptr || remoteAddr == nullptr ||
      remotePort == nullptr || type == nullptr) {
    return -1;
  }
  const char* const endpoints[4] = {serverAddr, serverPort, remoteAddr, remotePort};
  int found = ZANT_RELAY_CONN_DIRECT;
  auto content = ZANT::FileCache::Read(ZANT::RootPath(kConnectionsFile));
  if (!content->opened) {
    // No table at all: every connection is direct.
    if (content->error != ENOENT) return -1;
  } else if (!content->read) {
    return -1;
  } else if (!content->bytes.empty()) {
    FILE* file = fmemopen(const_cast<char*>(content->bytes.data()), content->bytes.size(), "r");
    if (file == nullptr) return -1;
    FindType(file, endpoints, &found);
    std::fclose(file);
  }
  *type = found;
  return 0;
}

namespace ZANT {

std::string RelayGlobalSuffix() { return Suffix("global_suffix", ".skyvane-zant.io"); }

std::string RelayChinaSuffix() { return Suffix("china_suffix", ".skyvane-zant.cn"); }

}  // namespace ZANT
