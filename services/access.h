// Roles, what each role may do, and who a permanent link lets in.
#pragma once

#include <string>

#include "zant/tarnova.h"

namespace plyth_services {

// Ordered: a higher role may do everything a lower one may.
enum class Role { kNone = 0, kPreviewer, kViewer, kCommenter, kEditor, kOwner };

// "previewer", "viewer", "commenter", "editor"; "owner" is never granted,
// it belongs to the item's owner alone.
bool ParseGrantableRole(const std::string& text, Role* role);
// The stored text of a role ("" for kNone).
const char* RoleName(Role role);
Role MaxRole(Role a, Role b);

// previewer: preview; viewer: + read; commenter: + comment; editor: + write,
// delete, rename, organize; owner: all nine.
Tarnova::Capabilities CapabilitiesOf(Role role);

// Who a permanent link admits beyond the owner and the members.
enum class Visibility { kMembers, kSignedIn, kAnyone };
bool ParseVisibility(const std::string& text, Visibility* visibility);
const char* VisibilityName(Visibility visibility);

// The role that a link with this visibility and role lends a caller:
// "members" lends nothing, "signed_in" lends linkRole to signed-in callers,
// "anyone" to every caller.
Role RoleFromLink(Visibility visibility, Role linkRole, bool signedIn);

// The caller of a request: the signed-in user's name, or nobody when the
// name is empty or "anonymous".
struct Caller {
  std::string user;
  bool signedIn = false;
};
Caller CallerFromUser(const std::string& loginUserName);

}  // namespace plyth_services
