// Reading of the appliance's key="value" files, shared by the base library,
// the desktop ports and the relay settings. Internal to the platform library.
#pragma once

#include <string>

namespace ZANT {
namespace KeyValue {

enum class Lookup { kFound, kAbsent, kUnreadable };

// Looks `key` up in the appliance file `appliancePath` (placed by RootPath).
// The first line of the key counts. Sets no error: callers decide what a
// missing file means to them.
Lookup Read(const std::string& appliancePath, const std::string& key, std::string* value);

// The value of one line `key=value` / `key="value"` when the line holds
// `key`; false for comments, blank lines, lines without "=" and other keys.
bool ParseLine(const std::string& line, const std::string& key, std::string* value);

// Text between leading and trailing blanks (spaces, tabs, CR, LF).
std::string Trim(const std::string& text);

}  // namespace KeyValue
}  // namespace ZANT
