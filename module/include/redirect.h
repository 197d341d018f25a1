// Redirects into the office editor and the web application.
#pragma once

#include <string>

#include <json/json.h>

#include "zant/webapi.h"

void RedirectOffice(ZANT::APIRequest* request, ZANT::APIResponse* response,
                    const Json::Value& file, const std::string& sharingLink);
void RedirectFunc(ZANT::APIRequest* request, ZANT::APIResponse* response,
                  const Json::Value& file);
