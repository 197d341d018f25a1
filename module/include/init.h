// Method "init": session facts and the desktop modules' script configuration.
#pragma once

#include <string>

#include <json/json.h>

#include "zant/webapi.h"

#define PLYTH_INIT_SOURCE "server/ui-web/webapi/plyth/shard/init"

bool IsSameDomainAndPort(ZANT::APIRequest* request);
bool GetSessionInfo(Json::Value& session, ZANT::APIRequest* request);
bool ScanModulesJSConfig(ZANT::APIRequest* request, Json::Value& config);
bool Scan3rdPartyJSConfig(ZANT::APIRequest* request, Json::Value& config);
bool ReadJSConfig(ZANT::APIRequest* request, const std::string& moduleDir, Json::Value& config);
