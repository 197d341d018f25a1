#include "access.h"

namespace plyth_services {

namespace {

struct RoleRow {
  Role role;
  const char* name;
};
const RoleRow kRoles[] = {
    {Role::kPreviewer, "previewer"}, {Role::kViewer, "viewer"}, {Role::kCommenter, "commenter"},
    {Role::kEditor, "editor"},       {Role::kOwner, "owner"},
};

struct VisibilityRow {
  Visibility visibility;
  const char* name;
};
const VisibilityRow kVisibilities[] = {
    {Visibility::kMembers, "members"},
    {Visibility::kSignedIn, "signed_in"},
    {Visibility::kAnyone, "anyone"},
};

}  // namespace

bool ParseGrantableRole(const std::string& text, Role* role) {
  for (const RoleRow& row : kRoles) {
    if (row.role != Role::kOwner && text == row.name) {
      *role = row.role;
      return true;
    }
  }
  return false;
}

const char* RoleName(Role role) {
  for (const RoleRow& row : kRoles) {
    if (row.role == role) return row.name;
  }
  return "";
}

Role MaxRole(Role a, Role b) { return a < b ? b : a; }

Tarnova::Capabilities CapabilitiesOf(Role role) {
  Tarnova::Capabilities caps;
  caps.can_preview = role >= Role::kPreviewer;
  caps.can_read = role >= Role::kViewer;
  caps.can_comment = role >= Role::kCommenter;
  caps.can_write = role >= Role::kEditor;
  caps.can_delete = role >= Role::kEditor;
  caps.can_rename = role >= Role::kEditor;
  caps.can_organize = role >= Role::kEditor;
  caps.can_share = role >= Role::kOwner;
  caps.can_encrypt = role >= Role::kOwner;
  return caps;
}

bool ParseVisibility(const std::string& text, Visibility* visibility) {
  for (const VisibilityRow& row : kVisibilities) {
    if (text == row.name) {
      *visibility = row.visibility;
      return true;
    }
  }
  return false;
}

const char* VisibilityName(Visibility visibility) {
  for (const VisibilityRow& row : kVisibilities) {
    if (row.visibility == visibility) return row.name;
  }
  return "members";
}

Role RoleFromLink(Visibility visibility, Role linkRole, bool signedIn) {
  switch (visibility) {
    case Visibility::kAnyone:
      return linkRole;
    case Visibility::kSignedIn:
      return signedIn ? linkRole : Role::kNone;
    case Visibility::kMembers:
      break;
  }
  return Role::kNone;
}

Caller CallerFromUser(const std::string& loginUserName) {
  Caller caller;
  caller.user = loginUserName;
  caller.signedIn = !loginUserName.empty() && loginUserName != "anonymous";
  return caller;
}

}  // namespace plyth_services
