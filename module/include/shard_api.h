// The exported method and check tables of "ZANT.BrindlexPlyth.Shard".
#pragma once

#include "zant/webapi.h"

extern "C" {
extern ZANTAPITableEntry gTable[];
extern ZANTAPICheckEntry gCheckTable[];
ZANTAPITableEntry* GetAPITable(void);
ZANTAPICheckEntry* GetAPICheckTable(void);
}

void GetFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);
void GetJSFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);
void InitFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);

int CheckGetFunc(ZANT::APIRequest* request);
int CheckGetJSFunc(ZANT::APIRequest* request);
int CheckInitFunc(ZANT::APIRequest* request);

// Error answered when a required link parameter is missing or unusable.
constexpr int kErrShardBadLink = 114;
// Error answered when the web root's module directories cannot be scanned.
constexpr int kErrShardScanFailed = 117;
