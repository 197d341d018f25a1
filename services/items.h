// Items (files and folders) of the store: lookups, the caller's role on an
// item, and the changes the administration command line makes. The file
// record a caller sees is built in item_records.h; content files are stored
// by content_store.h.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "access.h"
#include "store.h"

namespace plyth_services {

// Folders nest at most this deep; a longer parent chain is a damaged store.
constexpr int kMaxDepth = 256;

struct Item {
  std::string file_id;
  std::string parent_id;  // empty for an item at the top of its owner's view
  uint32_t owner_uid = 0;
  std::string owner_name;
  std::string path;          // in the owner's view, "/docs/a.txt"
  std::string display_path;  // what the owner and members are shown
  std::string name;
  int kind = 0;  // 0 file, 1 folder (the record's kinds)
  int64_t created_time = 0;
  int64_t modified_time = 0;
  int64_t access_time = 0;
  int64_t change_time = 0;
  uint64_t size = 0;
  std::string hash;  // SHA-256 of the content; the content file's name
  bool removed = false;
  std::string permanent_link;
  Visibility visibility = Visibility::kMembers;
  Role link_role = Role::kViewer;
  uint64_t sync_id = 0;
  std::string properties = "{}";
};

// Each answers kOk, kErrNoSuchItem or kErrStore.
int FindItemByLink(Store& store, const std::string& permanentLink, Item* item);
int FindItemById(Store& store, const std::string& fileId, Item* item);
int FindItemByPath(Store& store, const std::string& owner, const std::string& path, Item* item);
// Every owner's item at `path`.
int FindItemsByPath(Store& store, const std::string& path, std::vector<Item>* items);
int ListItems(Store& store, std::vector<Item>* items);  // by owner, then path

// One page of a folder's items outside the recycle bin: folders first,
// then by name (case folded, then exact). `total` counts them all.
int ListChildren(Store& store, const Item& folder, int64_t offset, int64_t limit, std::vector<Item>* items,
                 int64_t* total);
// The items below the folder outside the recycle bin, by path (a folder
// before what it holds), at most `limit` of them.
int ListDescendants(Store& store, const Item& folder, int64_t limit, std::vector<Item>* items);
// The item lies somewhere below the folder.
bool IsBelow(const Item& item, const Item& folder);

// The highest role granted to `user` on the item or any folder above it;
// kNone when there is none.
int MemberRole(Store& store, const Item& item, const std::string& user, Role* role);

// Checks an item path: "/" followed by names, no empty, "." or ".."
// names, no trailing "/". The root itself is not an item.
bool IsItemPath(const std::string& path);

struct NewItem {
  std::string owner_name;
  uint32_t owner_uid = 0;
  std::string path;
  int kind = 0;
  std::string hash;  // of content already stored with StoreContent
  uint64_t size = 0;
};
// Adds the item, and the folders above it that are missing, with fresh file
// ids and permanent links. kErrExists when the owner already has that path,
// kErrBadParameter for a bad path or a file above it.
int AddItem(Store& store, const NewItem& wanted, Item* added);

// Moves the item and everything below it into, or out of, the recycle bin.
int SetRemoved(Store& store, const Item& item, bool removed);
// Grants `member` the role on the item; kNone withdraws the grant.
int SetMemberRole(Store& store, const Item& item, const std::string& member, Role role);
int SetLinkAccess(Store& store, const Item& item, Visibility visibility, Role role);

// What a removed account leaves behind: its items (with their grants,
// labels, revisions and sharing links, whose tokens stop working at once),
// its labels, and the grants it held on other owners' items, so that a
// later account of the same name inherits none of it. The content files
// stay: they are shared by hash. kOk or kErrStore.
int RemoveAccountItems(Store& store, const std::string& owner);

}  // namespace plyth_services
