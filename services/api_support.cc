#include "api_support.h"
#include "services_api.h"

#include <syslog.h>

#include <cstdio>

namespace plyth_services {

bool TextParam(const ZANT::APIRequest& request, const char* name, bool required, std::string* value) {
  if (!request.HasParam(name)) {
    value->clear();
    return !required;
  }
  const Json::Value& param = request.GetParamRef(name, Json::Value());
  if (param.isString()) {
    *value = param.asString();
  } else if (param.isInt64()) {
    *value = std::to_string(param.asInt64());
  } else if (param.isUInt64()) {
    *value = std::to_string(param.asUInt64());
  } else if (param.isBool()) {
    *value = param.asBool() ? "true" : "false";
  } else {
    return false;
  }
  return true;
}

Store* OpenStoreOrLog() {
  std::string error;
  Store* store = Store::Shared(&error);
  if (!store) syslog(LOG_ERR, "plyth-services: cannot open the link store: %s", error.c_str());
  return store;
}

void WriteScript(const std::string& body) {
  static const char kHead[] = "Content-Type: application/javascript; charset=\"UTF-8\"\r\n\r\n";
  fwrite(kHead, 1, sizeof(kHead) - 1, stdout);
  fwrite(body.data(), 1, body.size(), stdout);
  fflush(stdout);
}

int CheckAnyone(ZANT::APIRequest*) { return 1; }

int CheckAdmin(ZANT::APIRequest* request) {
  if (request->GetAuthResult() == ZANT::kAuthAdmin) return 1;
  return request->GetLoginUserName() == "admin" ? 1 : 0;
}

}  // namespace plyth_services
