// The two JSON operations JsonCpp lacks.
#pragma once

#include <string>

#include <json/json.h>

namespace ZANT {

// Compact text: no blanks, no trailing line feed, members in JsonCpp's key
// order, UTF-8 passed through unescaped.
std::string JsonToString(const Json::Value& value);

// Parses the JSON file at `path` (taken as it is, not placed under the
// appliance root) into `out`; false when it cannot be read or parsed, `out`
// then untouched.
bool JsonFromFile(const std::string& path, Json::Value& out);

}  // namespace ZANT
