// "ZANT.BrindlexPlyth.Files" "list": a shared folder's items, page by
// page, and the way down to an item below the shared folder.
#include <string>
#include <vector>

#include "access.h"
#include "api_support.h"
#include "files_access.h"
#include "items.h"
#include "preview.h"
#include "service_errors.h"
#include "services_api.h"

namespace plyth_services {

namespace {

// Items per page of a listing.
constexpr int64_t kListPageSize = 200;
// Folders nest at most this deep below a shared folder in a breadcrumb trail.
constexpr int kMaxCrumbs = 256;

Json::Value Entry(const Item& item, bool canRead) {
  Json::Value entry(Json::objectValue);
  entry["file_id"] = item.file_id;
  entry["name"] = item.name;
  entry["type"] = item.kind == 1 ? "dir" : "file";
  entry["size"] = Json::UInt64(item.kind == 1 ? 0 : item.size);
  entry["modified_time"] = Json::Int64(item.modified_time);
  entry["preview"] = PreviewKindName(PreviewKindOf(item, canRead));
  return entry;
}

// The folders from the shared item down to `item`, both included.
int Breadcrumbs(Store& store, const Access& access, Json::Value* crumbs) {
  std::vector<Item> trail{access.item};
  while (trail.back().file_id != access.top.file_id) {
    if (trail.size() > kMaxCrumbs) return kErrStore;
    Item parent;
    int rc = FindItemById(store, trail.back().parent_id, &parent);
    if (rc != kOk) return rc == kErrNoSuchItem ? kErrStore : rc;
    trail.push_back(parent);
  }
  *crumbs = Json::Value(Json::arrayValue);
  for (auto it = trail.rbegin(); it != trail.rend(); ++it) {
    Json::Value crumb(Json::objectValue);
    crumb["file_id"] = it->file_id;
    crumb["name"] = it->name;
    crumbs->append(crumb);
  }
  return kOk;
}

}  // namespace

int ResolveRequestItem(Store& store, const ZANT::APIRequest& request, Access* access) {
  int rc = ResolveAccess(store, request, access);
  if (rc != kOk) return rc;
  access->top = access->item;
  std::string below;
  if (!TextParam(request, "item", false, &below)) return kErrBadParameter;
  if (below.empty() || below == access->top.file_id) return kOk;
  Item item;
  if ((rc = FindItemById(store, below, &item)) != kOk) return rc;
  // Nothing beside or above the shared item is reachable through it.
  if (!IsBelow(item, access->top) || item.removed || access->top.removed) return kErrNoSuchItem;
  access->item = item;
  return kOk;
}

void FilesListFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  Store* store = OpenStoreOrLog();
  if (!store) return response->SetError(kErrStore);
  Access access;
  int64_t offset = 0;
  int rc = ResolveRequestItem(*store, *request, &access);
  if (rc == kOk && !IntParam(*request, "offset", 0, 0, INT32_MAX, &offset)) rc = kErrBadParameter;
  if (rc != kOk) return response->SetError(rc);
  if (access.item.removed) return response->SetError(kErrNoSuchItem);
  if (access.item.kind != 1) return response->SetError(kErrNotAFolder);

  std::vector<Item> children;
  int64_t total = 0;
  Json::Value data(Json::objectValue);
  if ((rc = ListChildren(*store, access.item, offset, kListPageSize, &children, &total)) != kOk ||
      (rc = Breadcrumbs(*store, access, &data["breadcrumbs"])) != kOk) {
    return response->SetError(rc);
  }
  const bool canRead = CapabilitiesOf(access.role).can_read;
  data["can_read"] = canRead;
  data["offset"] = Json::Int64(offset);
  data["page_size"] = Json::Int64(kListPageSize);
  data["total"] = Json::Int64(total);
  Json::Value& items = data["items"] = Json::Value(Json::arrayValue);
  for (const Item& child : children) items.append(Entry(child, canRead));
  response->SetSuccess(data);
}

}  // namespace plyth_services
