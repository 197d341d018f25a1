// Versions of web resources and the script tags that carry them.
#pragma once

#include <string>

std::string GetWebFileModifyTime(const char* name);
std::string GetScriptTag(const char* src, bool noCache);
