// The file record a caller is answered with for an item.
#pragma once

#include <json/json.h>

#include "access.h"
#include "items.h"
#include "store.h"

namespace plyth_services {

// The "data" of "ZANT.BrindlexPlyth.Files" "get": the item as the caller
// sees it with `role`. `insider` (owner or member) also gets the paths,
// the members and the labels; others see the item as the top of its own
// view. kOk or kErrStore.
int BuildFileRecord(Store& store, const Item& item, Role role, bool insider, Json::Value* record);

}  // namespace plyth_services
