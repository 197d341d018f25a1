#include "plyth_http.h"

#include <syslog.h>

#include <cctype>
#include <cstdio>

#include "json_readers.h"
#include "plyth_utils.h"
#include "zant/json_util.h"
#include "zant/nxo.h"
#include "zant/relay.h"
#include "zant/vlibc.h"

namespace {

const char kZantInfo[] = "/etc/zantinfo.conf";
const char kZantInfoDefaults[] = "/etc.defaults/zantinfo.conf";
const char kWebApplication[] = "ZANT.QRT.Plyth.Application";

// Source lines that this unit's log lines carry; operators search the log
// for them, so they stay fixed whatever the layout of this file.
enum SourceLine {
  kLineSkyvanePermission = 31,
  kLineSkyvaneGet = 55,
  kLineDDNSCheck = 80,
  kLineDDNSList = 84,
  kLineExternalHost = 116,
  kLineHttpsPort = 144,
  kLineHttpPort = 153,
  kLineRelayQuery = 215,
};

// The core services' "success" and "enabled" count only as the JSON literal
// true, never as a number, unlike the link service's results.
bool IsTrue(const Json::Value& value) { return value.isBool() && value.asBool(); }

bool CoreSucceeded(const Json::Value& result) { return IsTrue(Member(result, "success")); }

void LogResult(int line, const Json::Value& result) {
  syslog(LOG_ERR, "%s:%d %s", PLYTH_HTTP_SOURCE, line, ZANT::JsonToString(result).c_str());
}

// A value of "/etc/zantinfo.conf", read with root ids; empty when absent.
std::string ZantInfoValue(const char* key, int line) {
  char buffer[1024] = {0};
  int found;
  {
    PlythCriticalSection section(PLYTH_HTTP_SOURCE, line);
    found = VLIBCFileGetKeyValue(kZantInfo, key, buffer, sizeof(buffer), 0);
  }
  return found > 0 ? std::string(buffer) : std::string();
}

// The external port of the scheme: configured, else the desktop's own port.
std::string ExternalPort(const std::string& proto, int port) {
  zantw3::Engine engine;
  zantw3::NXO nxo(engine);
  bool https = proto == "https";
  std::string configured = https ? ZantInfoValue("external_port_nxo_https", kLineHttpsPort)
                                  : ZantInfoValue("external_port_nxo_http", kLineHttpPort);
  if (!configured.empty()) return configured;
  char buffer[32] = {0};
  snprintf(buffer, sizeof(buffer), "%d", https ? nxo.GetHttpsPort() : nxo.GetHttpPort());
  std::string desktop = buffer;
  if (desktop.empty() && port != 0) desktop = std::to_string(port);
  return desktop;
}

// The first enabled dynamic-DNS record with a host name; false when the
// service is unavailable or has none.
bool DDNSOrigin(std::string& origin, const std::string& proto, const std::string& port) {
  int supported;
  {
    PlythCriticalSection section(PLYTH_HTTP_SOURCE, kLineDDNSCheck);
    supported = VLIBCFileCheckKeyValue(kZantInfoDefaults, "supportddns", "yes", 0);
  }
  if (supported == 0) return false;

  Json::Value result;
  PlythWebAPIExec(result, "ZANT.Core.DDNS.Record", 1, "list", Json::Value(), "admin");
  if (!CoreSucceeded(result)) {
    LogResult(kLineDDNSList, result);
    return false;
  }
  const Json::Value& records = Member(Member(result, "data"), "records");
  if (!records.isArray()) return false;
  for (const Json::Value& record : records) {
    if (!record.isObject() || !IsTrue(record["enable"])) continue;
    std::string hostname = JsonText(record["hostname"]);
    if (hostname.empty()) continue;
    origin = proto + "://" + hostname + ":" + port;
    break;
  }
  // Only the origin is looked at: a caller's non-empty origin would count.
  return !origin.empty();
}

// The path before the web application's own entry point, ending in "/".
std::string ApplicationPrefix(ZANT::APIRequest* request) {
  if (EnvText(request, "REWRITE_APP") != kWebApplication) return "/";
  std::string path = request->GetURLPath("/");
  for (const char* entry : {"oo/sharing/webapi/", "oo/r/webapi/", "d/f/webapi/", "webapi/"}) {
    size_t at = path.find(entry);
    if (at != std::string::npos) path.erase(at);
  }
  return path;
}

}  // namespace

bool PlythGetOrigin(std::string& origin, std::string& source, const std::string& proto,
                    int port) {
  // QUIRK: an empty scheme counts as success without an origin.
  if (proto.empty()) return true;

  std::string externalPort;
  if (proto == "https" || proto == "http") externalPort = ExternalPort(proto, port);

  if (!externalPort.empty()) {
    std::string host = ZantInfoValue("external_host_ip", kLineExternalHost);
    if (!host.empty()) {
      origin = proto + "://" + host + ":" + externalPort;
      source = "external";
      return true;
    }
    if (DDNSOrigin(origin, proto, externalPort)) {
      source = "ddns";
      return true;
    }
  }

  if (PlythGetSkyvaneOrigin(origin)) {
    source = "skyvane";
    return true;
  }
  return false;
}

bool PlythGetSkyvaneOrigin(std::string& origin) {
  Json::Value result;
  PlythWebAPIExec(result, "ZANT.Core.Skyvane.Permission", 1, "get", Json::Value(), "admin");
  if (!CoreSucceeded(result)) {
    LogResult(kLineSkyvanePermission, result);
    return false;
  }
  const Json::Value& services = Member(Member(result, "data"), "services");
  if (!services.isArray()) return false;
  bool portal = false;
  for (const Json::Value& service : services) {
    if (service.isObject() && IsTrue(service["enabled"]) &&
        service["id"] == Json::Value("nxo_portal")) {
      portal = true;
      break;
    }
  }
  if (!portal) return false;

  result = Json::Value();
  PlythWebAPIExec(result, "ZANT.Core.Skyvane", 1, "get", Json::Value(), "admin");
  if (!CoreSucceeded(result)) {
    LogResult(kLineSkyvaneGet, result);
    return false;
  }
  const Json::Value& data = Member(result, "data");
  if (!IsTrue(Member(data, "enabled"))) return false;
  std::string alias = MemberText(data, "server_alias");
  if (alias.empty()) return false;
  // Always https, whatever the request used.
  origin = "https://" + alias + "." + MemberText(data, "region") + "." +
           MemberText(data, "domain");
  return true;
}

bool IsSkyvaneRequest(ZANT::APIRequest* request) {
  // By name: the host ends in the 16-character relay suffix.
  // QUIRK: the bare suffix never matches; one character must stand before it.
  const size_t kSuffixLength = 16;
  std::string host = request->GetURLHost("");
  if (host.size() > kSuffixLength) {
    std::string tail = host.substr(host.size() - kSuffixLength);
    for (char& c : tail) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    if (tail == ZANT::RelayGlobalSuffix() || tail == ZANT::RelayChinaSuffix()) return true;
  }

  const char* const names[] = {"SERVER_ADDR", "SERVER_PORT", "REMOTE_ADDR", "REMOTE_PORT"};
  for (const char* name : names) {
    if (!request->HasEnv(name)) return false;
  }
  int type = 0;
  int rc;
  {
    PlythCriticalSection section(PLYTH_HTTP_SOURCE, kLineRelayQuery);
    std::string serverAddr = EnvText(request, names[0]);
    std::string serverPort = EnvText(request, names[1]);
    std::string remoteAddr = EnvText(request, names[2]);
    std::string remotePort = EnvText(request, names[3]);
    rc = ZANTRelayServiceGetConnectionTypeByAddr(serverAddr.c_str(), serverPort.c_str(),
                                                 remoteAddr.c_str(), remotePort.c_str(), &type);
  }
  return rc == 0 && (type == ZANT_RELAY_CONN_RELAY || type == ZANT_RELAY_CONN_TUNNEL);
}

void PlythGetBaseURL(ZANT::APIRequest* request, std::string& source, std::string& baseURL) {
  if (IsSkyvaneRequest(request)) {
    // A relayed request never looks at the appliance's own external origin.
    if (PlythGetSkyvaneOrigin(baseURL)) source = "skyvane";
  } else {
    // "HOST" is judged by its JSON text (quotes included); only a dot in it
    // matters, so a dotted name or an IPv4 address skips the look-up.
    bool dottedHost = false;
    if (request->HasEnv("HOST")) {
      std::string host = ZANT::JsonToString(request->GetEnv("HOST", Json::Value("")));
      dottedHost = !host.empty() && host.find('.') != std::string::npos;
    }
    if (!dottedHost) {
      PlythGetOrigin(baseURL, source, request->GetURLProto("http"), request->GetURLPort(0));
    }
  }

  if (baseURL.empty()) {
    baseURL = request->GetURLProto("http") + "://" + EnvText(request, "HTTP_HOST");
    source = "browser";
  }
  baseURL += ApplicationPrefix(request);
}
