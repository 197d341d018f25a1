#include "items.h"

#include "clock.h"
#include "crypto.h"
#include "plyth_utils.h"
#include "service_errors.h"

namespace plyth_services {

namespace {

#define ITEM_COLUMNS                                                                          \
  "file_id, parent_id, owner_uid, owner_name, path, display_path, name, kind, created_time, " \
  "modified_time, access_time, change_time, size, hash, removed, permanent_link, "            \
  "link_visibility, link_role, sync_id, properties"

void ReadItem(const Statement& row, Item* item) {
  item->file_id = row.Text(0);
  item->parent_id = row.Text(1);
  item->owner_uid = static_cast<uint32_t>(row.Int(2));
  item->owner_name = row.Text(3);
  item->path = row.Text(4);
  item->display_path = row.Text(5);
  item->name = row.Text(6);
  item->kind = static_cast<int>(row.Int(7));
  item->created_time = row.Int(8);
  item->modified_time = row.Int(9);
  item->access_time = row.Int(10);
  item->change_time = row.Int(11);
  item->size = static_cast<uint64_t>(row.Int(12));
  item->hash = row.Text(13);
  item->removed = row.Int(14) != 0;
  item->permanent_link = row.Text(15);
  if (!ParseVisibility(row.Text(16), &item->visibility)) item->visibility = Visibility::kMembers;
  if (!ParseGrantableRole(row.Text(17), &item->link_role)) item->link_role = Role::kNone;
  item->sync_id = static_cast<uint64_t>(row.Int(18));
  item->properties = row.Text(19);
}

int FindOne(Store& store, const char* sql, const std::string& a, const std::string* b, Item* item) {
  Statement query(store.Db(), sql);
  if (!query.Ok()) return kErrStore;
  query.Bind(1, a);
  if (b != nullptr) query.Bind(2, *b);
  int rc = query.Step();
  if (rc == SQLITE_DONE) return kErrNoSuchItem;
  if (rc != SQLITE_ROW) return kErrStore;
  ReadItem(query, item);
  return kOk;
}

int FindMany(Statement& query, std::vector<Item>* items) {
  if (!query.Ok()) return kErrStore;
  items->clear();
  int rc;
  while ((rc = query.Step()) == SQLITE_ROW) {
    items->emplace_back();
    ReadItem(query, &items->back());
  }
  return rc == SQLITE_DONE ? kOk : kErrStore;
}

int64_t NextSyncId(Store& store) {
  Statement query(store.Db(), "SELECT COALESCE(MAX(sync_id), 0) + 1 FROM items");
  return query.Row() ? query.Int(0) : 1;
}

std::string ParentPath(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == 0 ? std::string() : path.substr(0, slash);
}

int InsertItem(Store& store, const Item& item) {
  Statement insert(store.Db(),
                   "INSERT INTO items (" ITEM_COLUMNS
                   ") VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15,"
                   " ?16, ?17, ?18, ?19, ?20)");
  insert.Bind(1, item.file_id)
      .Bind(2, item.parent_id)
      .Bind(3, static_cast<int64_t>(item.owner_uid))
      .Bind(4, item.owner_name)
      .Bind(5, item.path)
      .Bind(6, item.display_path)
      .Bind(7, item.name)
      .Bind(8, static_cast<int64_t>(item.kind))
      .Bind(9, item.created_time)
      .Bind(10, item.modified_time)
      .Bind(11, item.access_time)
      .Bind(12, item.change_time)
      .Bind(13, static_cast<int64_t>(item.size))
      .Bind(14, item.hash)
      .Bind(15, static_cast<int64_t>(item.removed ? 1 : 0))
      .Bind(16, item.permanent_link)
      .Bind(17, std::string(VisibilityName(item.visibility)))
      .Bind(18, std::string(RoleName(item.link_role)))
      .Bind(19, static_cast<int64_t>(item.sync_id))
      .Bind(20, item.properties);
  return insert.Run() ? kOk : kErrStore;
}

int InsertFirstRevision(Store& store, const Item& item) {
  Statement insert(store.Db(),
                   "INSERT INTO revisions (item_id, version_id, created_time, modified_time, hash,"
                   " size, editor_uid, editors) VALUES (?1, ?2, ?3, ?3, ?4, ?5, ?6, ?7)");
  insert.Bind(1, item.file_id)
      .Bind(2, std::to_string(item.sync_id))
      .Bind(3, item.created_time)
      .Bind(4, item.hash)
      .Bind(5, static_cast<int64_t>(item.size))
      .Bind(6, static_cast<int64_t>(item.owner_uid))
      .Bind(7, item.owner_name);
  return insert.Run() ? kOk : kErrStore;
}

Item FreshItem(const NewItem& wanted, const std::string& path, int kind, const std::string& parentId,
               int64_t syncId) {
  Item item;
  item.file_id = RandomId(kFileIdLength);
  item.permanent_link = RandomId(kLinkIdLength);
  item.parent_id = parentId;
  item.owner_uid = wanted.owner_uid;
  item.owner_name = wanted.owner_name;
  item.path = path;
  item.display_path = path;
  item.name = path.substr(path.rfind('/') + 1);
  item.kind = kind;
  const int64_t now = Now();
  item.created_time = item.modified_time = item.access_time = item.change_time = now;
  item.sync_id = static_cast<uint64_t>(syncId);
  return item;
}

}  // namespace

int FindItemByLink(Store& store, const std::string& permanentLink, Item* item) {
  return FindOne(store, "SELECT " ITEM_COLUMNS " FROM items WHERE permanent_link = ?1",
                 permanentLink, nullptr, item);
}

int FindItemById(Store& store, const std::string& fileId, Item* item) {
  return FindOne(store, "SELECT " ITEM_COLUMNS " FROM items WHERE file_id = ?1", fileId, nullptr,
                 item);
}

int FindItemByPath(Store& store, const std::string& owner, const std::string& path, Item* item) {
  return FindOne(store, "SELECT " ITEM_COLUMNS " FROM items WHERE owner_name = ?1 AND path = ?2",
                 owner, &path, item);
}

int FindItemsByPath(Store& store, const std::string& path, std::vector<Item>* items) {
  Statement query(store.Db(),
                  "SELECT " ITEM_COLUMNS " FROM items WHERE path = ?1 ORDER BY owner_name");
  query.Bind(1, path);
  return FindMany(query, items);
}

int ListItems(Store& store, std::vector<Item>* items) {
  Statement query(store.Db(), "SELECT " ITEM_COLUMNS " FROM items ORDER BY owner_name, path");
  return FindMany(query, items);
}

int MemberRole(Store& store, const Item& item, const std::string& user, Role* role) {
  *role = Role::kNone;
  std::string id = item.file_id;
  for (int depth = 0; !id.empty() && depth < kMaxDepth; ++depth) {
    Statement grant(store.Db(), "SELECT role FROM permissions WHERE item_id = ?1 AND member = ?2");
    if (!grant.Ok()) return kErrStore;
    grant.Bind(1, id).Bind(2, user);
    Role granted;
    if (grant.Row() && ParseGrantableRole(grant.Text(0), &granted)) *role = MaxRole(*role, granted);
    Statement parent(store.Db(), "SELECT parent_id FROM items WHERE file_id = ?1");
    if (!parent.Ok()) return kErrStore;
    parent.Bind(1, id);
    id = parent.Row() ? parent.Text(0) : std::string();
  }
  return kOk;
}

bool IsItemPath(const std::string& path) {
  if (path.size() < 2 || path[0] != '/' || path.back() == '/') return false;
  size_t start = 1;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    std::string name = path.substr(start, end - start);
    if (name.empty() || name == "." || name == "..") return false;
    for (char c : name) {
      if (c == '\0' || c == '\n' || c == '\r') return false;
    }
    start = end + 1;
  }
  return true;
}

namespace {

// The folders above the wanted item, outermost first, made when missing
// (inside the caller's write). `parentId` ends as the innermost one's id,
// empty for an item at the top.
int MakeParentFolders(Store& store, const NewItem& wanted, int64_t syncId, std::string* parentId) {
  std::vector<std::string> folders;
  for (std::string up = ParentPath(wanted.path); !up.empty(); up = ParentPath(up)) {
    folders.insert(folders.begin(), up);
  }
  for (const std::string& folderPath : folders) {
    Item folder;
    int rc = FindItemByPath(store, wanted.owner_name, folderPath, &folder);
    if (rc == kOk) {
      if (folder.kind != Tarnova::FileInfo::kDir) return kErrBadParameter;
    } else if (rc == kErrNoSuchItem) {
      folder = FreshItem(wanted, folderPath, Tarnova::FileInfo::kDir, *parentId, syncId);
      if (folder.file_id.empty() || InsertItem(store, folder) != kOk) return kErrStore;
    } else {
      return rc;
    }
    *parentId = folder.file_id;
  }
  return kOk;
}

}  // namespace

int AddItem(Store& store, const NewItem& wanted, Item* added) {
  if (!IsItemPath(wanted.path) || wanted.owner_name.empty()) return kErrBadParameter;
  return store.Write(
      [&]() -> int {
        Item existing;
        int rc = FindItemByPath(store, wanted.owner_name, wanted.path, &existing);
        if (rc == kOk) return kErrExists;
        if (rc != kErrNoSuchItem) return rc;
        const int64_t syncId = NextSyncId(store);
        std::string parentId;
        rc = MakeParentFolders(store, wanted, syncId, &parentId);
        if (rc != kOk) return rc;

        Item item = FreshItem(wanted, wanted.path, wanted.kind, parentId, syncId);
        if (item.file_id.empty() || item.permanent_link.empty()) return kErrStore;
        if (wanted.kind == Tarnova::FileInfo::kFile) {
          item.hash = wanted.hash;
          item.size = wanted.size;
        }
        if (InsertItem(store, item) != kOk) return kErrStore;
        if (wanted.kind == Tarnova::FileInfo::kFile && InsertFirstRevision(store, item) != kOk) {
          return kErrStore;
        }
        *added = item;
        return kOk;
      },
      kErrStore);
}

int SetRemoved(Store& store, const Item& item, bool removed) {
  return store.Write(
      [&]() -> int {
        Statement update(store.Db(),
                         "UPDATE items SET removed = ?1, change_time = ?2, sync_id = ?3"
                         " WHERE owner_name = ?4"
                         " AND (path = ?5 OR substr(path, 1, length(?5) + 1) = ?5 || '/')");
        update.Bind(1, static_cast<int64_t>(removed ? 1 : 0))
            .Bind(2, Now())
            .Bind(3, NextSyncId(store))
            .Bind(4, item.owner_name)
            .Bind(5, item.path);
        return update.Run() ? kOk : kErrStore;
      },
      kErrStore);
}

int SetMemberRole(Store& store, const Item& item, const std::string& member, Role role) {
  return store.Write(
      [&]() -> int {
        if (role == Role::kNone) {
          Statement remove(store.Db(), "DELETE FROM permissions WHERE item_id = ?1 AND member = ?2");
          remove.Bind(1, item.file_id).Bind(2, member);
          return remove.Run() ? kOk : kErrStore;
        }
        Statement upsert(store.Db(),
                         "INSERT INTO permissions (item_id, member, role) VALUES (?1, ?2, ?3)"
                         " ON CONFLICT (item_id, member) DO UPDATE SET role = excluded.role");
        upsert.Bind(1, item.file_id).Bind(2, member).Bind(3, std::string(RoleName(role)));
        return upsert.Run() ? kOk : kErrStore;
      },
      kErrStore);
}

int SetLinkAccess(Store& store, const Item& item, Visibility visibility, Role role) {
  return store.Write(
      [&]() -> int {
        Statement update(store.Db(),
                         "UPDATE items SET link_visibility = ?1, link_role = ?2 WHERE file_id = ?3");
        update.Bind(1, std::string(VisibilityName(visibility)))
            .Bind(2, std::string(RoleName(role)))
            .Bind(3, item.file_id);
        return update.Run() ? kOk : kErrStore;
      },
      kErrStore);
}

int RemoveAccountItems(Store& store, const std::string& owner) {
  // Sharing links name their item by permanent link, not by a key the
  // items' cascade would follow.
  static const char* const kSteps[] = {
      "DELETE FROM auth_failures WHERE sharing_link IN (SELECT s.id FROM sharing_links s"
      " JOIN items i ON i.permanent_link = s.permanent_link WHERE i.owner_name = ?1)",
      "DELETE FROM sharing_links WHERE permanent_link IN"
      " (SELECT permanent_link FROM items WHERE owner_name = ?1)",
      "DELETE FROM permissions WHERE member = ?1",
      "DELETE FROM access_requests WHERE requester = ?1",
      "DELETE FROM labels WHERE owner_name = ?1",
      "DELETE FROM items WHERE owner_name = ?1",
  };
  return store.Write(
      [&]() -> int {
        for (const char* sql : kSteps) {
          Statement step(store.Db(), sql);
          step.Bind(1, owner);
          if (!step.Run()) return kErrStore;
        }
        return kOk;
      },
      kErrStore);
}

}  // namespace plyth_services

namespace plyth_services {

int ListChildren(Store& store, const Item& folder, int64_t offset, int64_t limit, std::vector<Item>* items,
                 int64_t* total) {
  Statement count(store.Db(), "SELECT COUNT(*) FROM items WHERE parent_id = ?1 AND removed = 0");
  if (!count.Ok()) return kErrStore;
  count.Bind(1, folder.file_id);
  if (!count.Row()) return kErrStore;
  *total = count.Int(0);
  // Folders first, then names as people read them; the exact bytes break ties.
  Statement query(store.Db(),
                  "SELECT " ITEM_COLUMNS " FROM items WHERE parent_id = ?1 AND removed = 0"
                  " ORDER BY kind DESC, name COLLATE NOCASE, name LIMIT ?2 OFFSET ?3");
  query.Bind(1, folder.file_id).Bind(2, limit).Bind(3, offset);
  return FindMany(query, items);
}

int ListDescendants(Store& store, const Item& folder, int64_t limit, std::vector<Item>* items) {
  // Paths below "/a" sort between "/a/" and "/a0" ('0' follows '/'), so the
  // owner-and-path key serves the range.
  Statement query(store.Db(),
                  "SELECT " ITEM_COLUMNS " FROM items WHERE owner_name = ?1 AND path > ?2 AND path < ?3"
                  " AND removed = 0 ORDER BY path LIMIT ?4");
  query.Bind(1, folder.owner_name).Bind(2, folder.path + "/").Bind(3, folder.path + "0").Bind(4, limit);
  return FindMany(query, items);
}

bool IsBelow(const Item& item, const Item& folder) {
  return item.owner_name == folder.owner_name && item.path.size() > folder.path.size() + 1 &&
         item.path.compare(0, folder.path.size() + 1, folder.path + "/") == 0;
}

}  // namespace plyth_services
