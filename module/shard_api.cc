// The module's only entry points: the method table and the check table that
// the web-API framework reads after loading the library.
#include "shard_api.h"

namespace {

// Every row of both tables points at these very texts.
const char kShardAPI[] = "ZANT.BrindlexPlyth.Shard";
const char kMethodGet[] = "get";
const char kMethodGetJS[] = "getjs";
const char kMethodInit[] = "init";

}  // namespace

int CheckGetFunc(ZANT::APIRequest* /*request*/) { return 1; }

int CheckGetJSFunc(ZANT::APIRequest* /*request*/) { return 1; }

int CheckInitFunc(ZANT::APIRequest* /*request*/) { return 1; }

extern "C" {

ZANTAPITableEntry gTable[] = {
    {kShardAPI, 1, kMethodGet, GetFunc},
    {kShardAPI, 1, kMethodGetJS, GetJSFunc},
    {kShardAPI, 1, kMethodInit, InitFunc},
    {nullptr, 0, nullptr, nullptr},
};

// QUIRK: rows in the reverse order of gTable; the framework reads them by name.
ZANTAPICheckEntry gCheckTable[] = {
    {kShardAPI, 1, kMethodInit, CheckInitFunc, 0, 0},
    {kShardAPI, 1, kMethodGetJS, CheckGetJSFunc, 0, 0},
    {kShardAPI, 1, kMethodGet, CheckGetFunc, 0, 0},
    {nullptr, 0, nullptr, nullptr, 0, 0},
};

ZANTAPITableEntry* GetAPITable(void) { return gTable; }

ZANTAPICheckEntry* GetAPICheckTable(void) { return gCheckTable; }

}  // extern "C"
