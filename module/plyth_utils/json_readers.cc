#include "json_readers.h"

std::string JsonText(const Json::Value& value) {
  return value.isConvertibleTo(Json::stringValue) ? value.asString() : std::string();
}

bool JsonFlag(const Json::Value& value) {
  return value.isConvertibleTo(Json::booleanValue) && value.asBool();
}

const Json::Value& Member(const Json::Value& object, const char* key) {
  static const Json::Value kNull;
  return object.isObject() ? object[key] : kNull;
}

std::string MemberText(const Json::Value& object, const char* key) {
  return JsonText(Member(object, key));
}

bool MemberFlag(const Json::Value& object, const char* key) { return JsonFlag(Member(object, key)); }

std::string EnvText(ZANT::APIRequest* request, const char* name) {
  return JsonText(request->GetEnv(name, Json::Value()));
}

bool Succeeded(const Json::Value& result) { return MemberFlag(result, "success"); }
