// Appliance APIs that the shard module asks in-process (product
// information, dynamic DNS records, the relay service), answered from the
// appliance's configuration files, and the desktop framework's scripts
// that the share page loads.
#include <syslog.h>

#include <cctype>

#include "api_support.h"
#include "services_api.h"
#include "zant/appliance.h"
#include "zant/json_util.h"
#include "zant/qrt.h"
#include "zant/vlibc.h"

namespace plyth_services {

namespace {

const char kZantInfo[] = "/etc/zantinfo.conf";
const char kDDNSRecords[] = "/usr/zant/etc/ddns_records.json";
const char kRelayPermission[] = "/usr/zant/etc/relay/permission.json";
const char kRelay[] = "/usr/zant/etc/relay/skyvane.json";
const char kJSLibTexts[] = "/usr/zant/zantman/zantQRTjslib/texts/";

enum class Config { kRead, kMissing, kBroken };

// A JSON configuration file of the appliance. A missing file is an empty
// configuration; one that cannot be parsed is an error, logged.
Config ReadConfig(const char* appliancePath, Json::Value* out) {
  const std::string file = ZANT::RootPath(appliancePath);
  if (ZANT::JsonFromFile(file, *out)) return Config::kRead;
  FILE* probe = fopen(file.c_str(), "rb");
  if (probe == nullptr) return Config::kMissing;
  fclose(probe);
  syslog(LOG_ERR, "plyth-services: %s cannot be parsed", appliancePath);
  return Config::kBroken;
}

// An array kept either bare or under `key` of an object; anything else is
// an empty list.
Json::Value ListFrom(const Json::Value& config, const char* key) {
  const Json::Value& list = config.isObject() ? config[key] : config;
  return list.isArray() ? list : Json::Value(Json::arrayValue);
}

void AnswerList(ZANT::APIResponse* response, const char* appliancePath, const char* key) {
  Json::Value config;
  if (ReadConfig(appliancePath, &config) == Config::kBroken) {
    return response->SetError(ZANT::kErrUnknown);
  }
  Json::Value data(Json::objectValue);
  data[key] = ListFrom(config, key);
  response->SetSuccess(data);
}

// window.<table> holds the texts; window.<getter>(section, key) reads one,
// the empty text when missing.
std::string TextScript(const char* table, const char* getter, const Json::Value& texts) {
  std::string body = "window.";
  body += table;
  body += "=";
  body += ZANT::JsonToString(texts);
  body += ";\nwindow.";
  body += getter;
  body += "=function(s,k){var t=window.";
  body += table;
  body += "[s];return t&&typeof t[k]==='string'?t[k]:'';};\n";
  return body;
}

}  // namespace

void InfoGetFunc(ZANT::APIRequest*, ZANT::APIResponse* response) {
  Json::Value data(Json::objectValue);
  char value[1024] = {0};
  if (VLIBCFileGetKeyValue(kZantInfo, "qv_id", value, sizeof(value), 0) > 1) data["qv_id"] = value;
  response->SetSuccess(data);
}

void DDNSRecordListFunc(ZANT::APIRequest*, ZANT::APIResponse* response) {
  AnswerList(response, kDDNSRecords, "records");
}

void SkyvanePermissionGetFunc(ZANT::APIRequest*, ZANT::APIResponse* response) {
  AnswerList(response, kRelayPermission, "services");
}

void SkyvaneGetFunc(ZANT::APIRequest*, ZANT::APIResponse* response) {
  Json::Value config;
  if (ReadConfig(kRelay, &config) == Config::kBroken) return response->SetError(ZANT::kErrUnknown);
  Json::Value data = config.isObject() ? config : Json::Value(Json::objectValue);
  if (!data["enabled"].isBool()) data["enabled"] = false;
  for (const char* key : {"server_alias", "region", "domain"}) {
    if (!data[key].isString()) data[key] = "";
  }
  response->SetSuccess(data);
}

void DesktopDefsGetJSFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  Json::Value defs(Json::objectValue);
  defs["lang"] = LanguageOf(*request);
  defs["product"] = "Brindlex Plyth";
  defs["signed_in"] = request->GetLoginUID() != -1;
  response->SetEnableOutput(false);
  WriteScript("window.ZANTDefs=" + ZANT::JsonToString(defs) +
              ";\nwindow.ZANTDef=function(k,d){var v=window.ZANTDefs[k];"
              "return v===undefined?d:v;};\n");
}

void DesktopJSUIStringGetJSFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  Json::Value texts = TextsOf(kJSLibTexts, LanguageOf(*request));
  response->SetEnableOutput(false);
  WriteScript(TextScript("ZANTJSUIStrings", "ZANTJSText", texts));
}

void DesktopUIStringGetJSFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  Json::Value texts = TextsOf(kUITexts, LanguageOf(*request));
  response->SetEnableOutput(false);
  WriteScript(TextScript("ZANTUIStrings", "ZANTText", texts));
}

}  // namespace plyth_services
