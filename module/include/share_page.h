// The desktop landing page of a link.
#pragma once

#include <string>

#include <json/json.h>

#include "zant/webapi.h"

// Icon category of a file record ("folder", "image", ..., "xxx").
std::string FileIconCategory(const Json::Value& file);
// Gives a link-preview crawler's HTTP_HOST the server port when it has none.
void ApplyCrawlerHost(ZANT::APIRequest* request);
void WriteSharePage(ZANT::APIRequest* request, ZANT::APIResponse* response,
                    const std::string& linkId, const std::string& sharingLink,
                    const Json::Value& file, const std::string& nxoToken);
