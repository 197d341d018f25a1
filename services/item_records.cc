#include "item_records.h"

#include "download.h"
#include "plyth_utils.h"
#include "service_errors.h"
#include "zant/userdb.h"

namespace plyth_services {

namespace {

std::string OwnerDisplayName(const std::string& owner) {
  ZANT::UserDB::User user;
  if (ZANT::UserDB::FindUser(owner, &user) == ZANT::UserDB::Status::kOk && !user.fullName.empty()) {
    return user.fullName;
  }
  return owner;
}

// Grants on the item and on the folders above it, nearest first.
int CollectGrants(Store& store, const Item& item, std::vector<Tarnova::PermissionEntry>* grants) {
  std::string id = item.file_id;
  for (int depth = 0; !id.empty() && depth < kMaxDepth; ++depth) {
    Statement query(store.Db(), "SELECT member, role FROM permissions WHERE item_id = ?1 ORDER BY member");
    if (!query.Ok()) return kErrStore;
    query.Bind(1, id);
    while (query.Row()) {
      Tarnova::PermissionEntry entry;
      entry.permission_id = id + ":" + query.Text(0);
      entry.type = "user";
      entry.name = query.Text(0);
      entry.role = query.Text(1);
      entry.inherited = id != item.file_id;
      grants->push_back(entry);
    }
    Statement parent(store.Db(), "SELECT parent_id FROM items WHERE file_id = ?1");
    if (!parent.Ok()) return kErrStore;
    parent.Bind(1, id);
    id = parent.Row() ? parent.Text(0) : std::string();
  }
  return kOk;
}

int CollectLabels(Store& store, const Item& item, std::vector<Tarnova::LabelInfo>* labels) {
  Statement query(store.Db(),
                  "SELECT l.label_id, l.name, l.color, l.position FROM item_labels il"
                  " JOIN labels l ON l.label_id = il.label_id"
                  " WHERE il.item_id = ?1 ORDER BY l.position, l.label_id");
  if (!query.Ok()) return kErrStore;
  query.Bind(1, item.file_id);
  while (query.Row()) {
    Tarnova::LabelInfo label;
    label.label_id = query.Text(0);
    label.name = query.Text(1);
    label.color = query.Text(2);
    label.position = static_cast<int32_t>(query.Int(3));
    labels->push_back(label);
  }
  return kOk;
}

int64_t CountOf(Store& store, const char* sql, const std::string& key) {
  Statement query(store.Db(), sql);
  if (!query.Ok()) return -1;
  query.Bind(1, key);
  return query.Row() ? query.Int(0) : -1;
}

}  // namespace

int BuildFileRecord(Store& store, const Item& item, Role role, bool insider, Json::Value* record) {
  Tarnova::FileInfo info;
  info.file_id = item.file_id;
  if (insider) {
    info.path = item.path;
    info.nxo_path = item.path;
    info.display_path = item.display_path;
    info.original_path = item.path;
    info.parent_id = item.parent_id;
  } else {
    // Outsiders see the shared item as the top of a view of its own, and
    // learn nothing of where the owner keeps it.
    info.path = "/" + item.name;
  }
  info.name = item.name;
  info.kind = item.kind;
  info.created_time = static_cast<uint32_t>(item.created_time);
  info.access_time = static_cast<uint32_t>(item.access_time);
  info.modified_time = static_cast<uint32_t>(item.modified_time);
  info.change_time = static_cast<uint32_t>(item.change_time);
  info.size = item.size;
  info.capabilities = CapabilitiesOf(role);
  info.sync_id = item.sync_id;
  Statement maxId(store.Db(), "SELECT COALESCE(MAX(sync_id), 0) FROM items");
  if (!maxId.Row()) return kErrStore;
  info.max_id = static_cast<uint64_t>(maxId.Int(0));
  info.removed = item.removed;

  std::vector<Tarnova::PermissionEntry> grants;
  if (CollectGrants(store, item, &grants) != kOk) return kErrStore;
  int64_t sharingLinks =
      CountOf(store, "SELECT COUNT(*) FROM sharing_links WHERE permanent_link = ?1", item.permanent_link);
  int64_t revisions = CountOf(store, "SELECT COUNT(*) FROM revisions WHERE item_id = ?1", item.file_id);
  if (sharingLinks < 0 || revisions < 0) return kErrStore;
  info.shared = !grants.empty() || item.visibility != Visibility::kMembers;
  info.adv_shared = sharingLinks > 0;
  if (insider) {
    info.shared_with = grants;
    if (CollectLabels(store, item, &info.labels) != kOk) return kErrStore;
  }
  info.properties = item.properties.empty() ? "{}" : item.properties;
  info.app_properties = "{}";
  info.owner.name = item.owner_name;
  info.owner.uid = item.owner_uid;
  info.owner.display_name = OwnerDisplayName(item.owner_name);
  info.permanent_link = item.permanent_link;
  info.hash = item.hash;
  info.revisions = static_cast<uint32_t>(revisions);
  info.content_type = item.kind == Tarnova::FileInfo::kDir ? std::string() : ContentTypeFor(item.name);

  Json::Value out(Json::objectValue);
  if (ConvertFileInfoToJSon(info, out) != 0) return kErrStore;
  record->swap(out);
  return kOk;
}

}  // namespace plyth_services
