// Readers of parameters, record members and server variables for the
// module's handlers. None of them throws: a value of the wrong kind reads as
// empty text, false or null, which is what every answer expects.
#pragma once

#include <string>

#include <json/json.h>

#include "zant/webapi.h"

// A scalar as text (numbers and booleans in their text form, null as "");
// objects and arrays read as "".
std::string JsonText(const Json::Value& value);
// A value as a yes/no: true, or a non-zero number; anything else is false.
bool JsonFlag(const Json::Value& value);
// The member `key` of an object; null when `object` is not an object.
const Json::Value& Member(const Json::Value& object, const char* key);
// JsonText / JsonFlag of a member; "" / false when absent.
std::string MemberText(const Json::Value& object, const char* key);
bool MemberFlag(const Json::Value& object, const char* key);
// A server variable as text; "" when it is not set.
std::string EnvText(ZANT::APIRequest* request, const char* name);
// True when a web-API result is an object whose "success" reads as a flag.
bool Succeeded(const Json::Value& result);
