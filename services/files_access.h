// Who may do what with the item a "ZANT.BrindlexPlyth.Files" request names:
// the shared item itself, or an item inside a shared folder.
#pragma once

#include <string>

#include "access.h"
#include "items.h"
#include "store.h"
#include "zant/webapi.h"

namespace plyth_services {

struct Access {
  Item item;
  Role role = Role::kNone;
  bool insider = false;  // owner or member
  Item top;              // the item the link or id names; `item` is it or lies below it
};

// The caller's role on the item of "path" ("link:" or "id:"), from the
// owner's and members' names, the permanent link and the sharing token.
// Answers 101, 408, 1040, 1002 or 1050 in that order of checks.
int ResolveAccess(Store& store, const ZANT::APIRequest& request, Access* access);

// ResolveAccess, then the optional parameter "item": the file id of an
// item below the one "path" names, which the caller reaches with the role
// held on the shared folder. 408 when it is not below it or is in the
// recycle bin; without "item" the named item itself.
int ResolveRequestItem(Store& store, const ZANT::APIRequest& request, Access* access);

}  // namespace plyth_services
