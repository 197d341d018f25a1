// Pieces shared by the host's own sources.
#pragma once

#include <string>

#include "zant/webapi.h"
#include "zant_host/request_decode.h"

namespace zant_host {

// A parameter as text: a JSON string as it is; any other value by the text
// the client sent, so that a password "1.50" or "null" stays what was
// typed. In a nested call (no fields) numbers and booleans give their JSON
// text. False when absent, or null, an array or an object in a nested call.
bool ParamText(const ZANT::APIRequest& request, const std::string& name, std::string* text);

}  // namespace zant_host
