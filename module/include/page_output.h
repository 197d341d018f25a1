// Pages leave the module here: CGI headers and a filled template on stdout.
#pragma once

#include <string>

#include <json/json.h>

#include "zant/webapi.h"

// Template paths are appliance paths (placed under the appliance root).
void RenderTemplatePage(ZANT::APIResponse* response, const char* templatePath,
                        const Json::Value& values);
std::string HtmlEscape(const std::string& text);
std::string VersionedURL(const std::string& path);
