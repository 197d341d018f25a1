// The appliance's external origin and the base URL of a request.
#pragma once

#include <string>

#include "zant/webapi.h"

#define PLYTH_HTTP_SOURCE "server/ui-web/webapi/plyth/shard/plyth_http"

bool PlythGetOrigin(std::string& origin, std::string& source, const std::string& proto, int port);
bool PlythGetSkyvaneOrigin(std::string& origin);
bool IsSkyvaneRequest(ZANT::APIRequest* request);
void PlythGetBaseURL(ZANT::APIRequest* request, std::string& source, std::string& baseURL);
