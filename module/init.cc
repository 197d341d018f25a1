// Method "init": the visitor's session facts and the script configuration of
// every desktop module and add-on package under the web root.
#include "init.h"

#include <dirent.h>
#include <errno.h>
#include <syslog.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "json_readers.h"
#include "plyth_utils.h"
#include "shard_api.h"
#include "zant/appliance.h"
#include "zant/json_util.h"
#include "zant/relay.h"
#include "zant/webman.h"
#include "zant/webutils.h"

namespace {

const char kWebRoot[] = "/usr/zant/zantman";
const char kDateTimeFormatFile[] = "/usr/zant/etc/date_time_format";
const char kModulesDir[] = "webman/modules";
const char kThirdPartyDir[] = "webman/3rdparty";
// An entry of a module's configuration that names no file of its own.
const char kURLEntry[] = ".url";

// Source lines that this unit's log lines carry.
const int kLineRelayQuery = 59;
const int kLineNoDateTimeFormat = 89;
const int kLineConfigNotObject = 138;
const int kLineEntryUnreadable = 151;
const int kLineEntryNotObject = 161;
const int kLineClassNotObject = 174;
const int kLineConfigUnparsable = 215;

bool IsEmptyArray(const Json::Value& value) { return value.isArray() && value.empty(); }

// QUIRK: a failed change is not acted upon; the scan reports the directory it cannot open.
void ChangeDir(const char* path) {
  if (chdir(path) != 0) return;
}

// Fills `session` from the date-time format file, or with the desktop's
// defaults when the file cannot be read.
void ReadDateTimeFormat(Json::Value& session) {
  Json::Value formats(Json::objectValue);
  if (!ZANT::JsonFromFile(ZANT::RootPath(kDateTimeFormatFile), formats)) {
    syslog(LOG_ERR, "%s:%d Failed to read date time format from file", PLYTH_INIT_SOURCE,
           kLineNoDateTimeFormat);
    session["date_format"] = "Y-m-d";
    session["time_format"] = "H:i";
    return;
  }
  // Missing members are copied as null, not defaulted.
  const Json::Value kNull;
  session["date_format"] = formats.isObject() ? formats["date_format"] : kNull;
  session["time_format"] = formats.isObject() ? formats["time_format"] : kNull;
}

// Adds the classes of one script entry E (named by path P) to `config`.
void AddEntryClasses(const std::string& moduleDir, const std::string& entryPath, Json::Value entry,
                     Json::Value& config) {
  if (IsEmptyArray(entry)) entry = Json::Value(Json::objectValue);
  if (!entry.isObject()) {
    syslog(LOG_ERR, "%s:%d Skip %s: Config is not an object.", PLYTH_INIT_SOURCE,
           kLineEntryNotObject, entryPath.c_str());
    return;
  }
  for (const std::string& className : entry.getMemberNames()) {
    Json::Value& settings = entry[className];
    if (IsEmptyArray(settings)) settings = Json::Value(Json::objectValue);
    if (!settings.isObject()) {
      syslog(LOG_ERR, "%s:%d Skip %s: Config is not an object.", PLYTH_INIT_SOURCE,
             kLineClassNotObject, className.c_str());
      continue;
    }
    settings["jsBaseURL"] = moduleDir;
    settings["jsID"] = className;
    config[entryPath][className] = settings;
  }
}

// Reads the modules of one directory under the web root. The working
// directory is the web root meanwhile and is put back on every path.
bool ScanJSConfigDir(ZANT::APIRequest* request, const char* directory, Json::Value& config) {
  char savedDir[4096];
  memset(savedDir, 0, sizeof(savedDir));
  if (getcwd(savedDir, sizeof(savedDir)) == nullptr) savedDir[0] = '\0';
  ChangeDir(ZANT::RootPath(kWebRoot).c_str());

  bool result = false;
  DIR* dir = opendir(directory);
  if (dir != nullptr) {
    const std::string prefix = std::string(directory) + "/";
    result = true;
    while (struct dirent64* entry = readdir64(dir)) {
      if (entry->d_type != DT_DIR && entry->d_type != DT_LNK) continue;
      if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
      // One broken module fails the scan but does not stop it.
      result = ReadJSConfig(request, prefix + entry->d_name, config) && result;
    }
    closedir(dir);
  }
  ChangeDir(savedDir);
  return result;
}

}  // namespace

bool IsSameDomainAndPort(ZANT::APIRequest* request) {
  if (!request->HasEnv("HTTP_HOST") || !request->HasEnv("HTTP_REFERER")) return false;
  for (const char* name : {"SERVER_ADDR", "SERVER_PORT", "REMOTE_ADDR", "REMOTE_PORT"}) {
    if (!request->HasEnv(name)) return false;
  }

  int type = 0;
  int ret;
  {
    PlythCriticalSection rootIds(PLYTH_INIT_SOURCE, kLineRelayQuery);
    const std::string serverAddr = EnvText(request, "SERVER_ADDR");
    const std::string serverPort = EnvText(request, "SERVER_PORT");
    const std::string remoteAddr = EnvText(request, "REMOTE_ADDR");
    const std::string remotePort = EnvText(request, "REMOTE_PORT");
    ret = ZANTRelayServiceGetConnectionTypeByAddr(serverAddr.c_str(), serverPort.c_str(),
                                                  remoteAddr.c_str(), remotePort.c_str(), &type);
  }
  // QUIRK: without a connection type the check never passes.
  if (ret != 0) return false;

  // A relayed browser always talks https to the relay, whatever reached us.
  const std::string scheme =
      type == ZANT_RELAY_CONN_RELAY ? std::string("https") : request->GetURLProto("");
  std::string protocol, hostAddressed, portAddressed, hostReferer, portReferer;
  if (!WebUtils::ParseURL(scheme + "://" + EnvText(request, "HTTP_HOST"), protocol, hostAddressed,
                          portAddressed)) {
    return false;
  }
  if (!WebUtils::ParseURL(EnvText(request, "HTTP_REFERER"), protocol, hostReferer, portReferer)) {
    return false;
  }
  // Byte-wise: letter case matters, and the schemes are not compared.
  return hostAddressed == hostReferer && portAddressed == portReferer;
}

bool GetSessionInfo(Json::Value& session, ZANT::APIRequest* request) {
  WebMan webman(true);
  const int authorized = webman.CheckAuthorized(0x1F, CGI_POSITION_WEBAPI, false);
  // A user named by the web server counts only on the appliance's own domain and port.
  // QUIRK: elsewhere that user's session gets no token.
  const bool signedIn = authorized == 1 || authorized == 2 ||
                        (authorized == ZANT::kAuthWebServer && IsSameDomainAndPort(request));
  session["isLogined"] = signedIn;
  if (signedIn) {
    session["ZantToken"] = webman.GetZantToken(false);
  } else {
    ReadDateTimeFormat(session);
  }
  session["lang"] = request->GetUILanguage();
  session["standalone"] = true;
  return true;
}

bool ReadJSConfig(ZANT::APIRequest* request, const std::string& moduleDir, Json::Value& config) {
  const std::string configPath = moduleDir + "/" + "config";
  const std::string debugConfigPath = moduleDir + "/" + "config.debug";
  const Json::Value action = request->GetParam("action", "");

  std::ifstream in;
  if (action.isString() && action.asString() == "debug") {
    in.open(debugConfigPath, std::ios::binary);
    if (!in.is_open()) in.open(configPath, std::ios::binary);
  } else {
    in.open(configPath, std::ios::binary);
  }
  // A module without configuration is skipped silently.
  if (!in.is_open()) return true;

  Json::Reader reader;
  Json::Value root;
  if (!reader.parse(in, root, false)) {
    // QUIRK: names the normal file even when the debug one was read.
    syslog(LOG_ERR, "%s:%d %s: %s\n", PLYTH_INIT_SOURCE, kLineConfigUnparsable,
           configPath.c_str(), reader.getFormattedErrorMessages().c_str());
    return false;
  }
  if (!root.isObject()) {
    syslog(LOG_ERR, "%s:%d Skip %s: Config is not an object.", PLYTH_INIT_SOURCE,
           kLineConfigNotObject, moduleDir.c_str());
    return true;
  }

  for (const std::string& name : root.getMemberNames()) {
    const std::string entryPath = moduleDir + "/" + name;
    if (name != kURLEntry && access(entryPath.c_str(), R_OK) != 0) {
      const int error = errno;
      syslog(LOG_ERR, "%s:%d Skip %s: %s.", PLYTH_INIT_SOURCE, kLineEntryUnreadable,
             entryPath.c_str(), strerror(error));
      continue;
    }
    AddEntryClasses(moduleDir, entryPath, root[name], config);
  }
  return true;
}

bool ScanModulesJSConfig(ZANT::APIRequest* request, Json::Value& config) {
  return ScanJSConfigDir(request, kModulesDir, config);
}

bool Scan3rdPartyJSConfig(ZANT::APIRequest* request, Json::Value& config) {
  return ScanJSConfigDir(request, kThirdPartyDir, config);
}

void InitFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  Json::Value result;
  // Both scans write into the same "JSConfig"; it stays null when nothing
  // contributes. An error answer carries nothing of what was gathered.
  if (!GetSessionInfo(result["Session"], request) ||
      !ScanModulesJSConfig(request, result["JSConfig"]) ||
      !Scan3rdPartyJSConfig(request, result["JSConfig"])) {
    response->SetError(kErrShardScanFailed, Json::Value());
    return;
  }
  response->SetSuccess(result);
}
