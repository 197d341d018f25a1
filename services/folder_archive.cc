#include "folder_archive.h"

#include <algorithm>
#include <set>

#include "api_support.h"
#include "download.h"
#include "files_access.h"
#include "folder_zip.h"
#include "service_errors.h"
#include "services_api.h"

namespace plyth_services {

namespace {

// Relative to the directory of the link service's library.
const char kZipLibrary[] = "../plyth/zip.so";

// The ZIP writer: linked into the program, or loaded from beside the
// library this code is in, once.
const ZipFunctions* Zipper() {
  static const ZipFunctions* const functions =
      LoadedTable(PlythZipFunctions, kZipLibrary, "PlythZipFunctions", "archives");
  return functions;
}

// The items of "items" (file ids below the folder), or the folder itself,
// which stands for everything in it.
int ChosenItems(Store& store, const ZANT::APIRequest& request, const Item& folder, std::vector<Item>* chosen) {
  const Json::Value& ids = request.GetParamRef("items", Json::Value());
  if (ids.isNull()) {
    chosen->push_back(folder);
    return kOk;
  }
  if (!ids.isArray() || ids.empty() || ids.size() > kArchiveMaxEntries) return kErrBadParameter;
  for (const Json::Value& id : ids) {
    if (!id.isString()) return kErrBadParameter;
    Item item;
    int rc = FindItemById(store, id.asString(), &item);
    if (rc != kOk) return rc;
    if (!IsBelow(item, folder) || item.removed) return kErrNoSuchItem;
    chosen->push_back(item);
  }
  return kOk;
}

}  // namespace

int ArchiveEntries(Store& store, const Item& folder, const std::vector<Item>& chosen,
                   std::vector<ArchiveEntry>* entries) {
  std::set<std::string> seen;
  std::vector<Item> found;
  uint64_t bytes = 0;
  auto add = [&](const Item& item) -> int {
    if (item.file_id == folder.file_id || !seen.insert(item.file_id).second) return kOk;
    if (seen.size() > kArchiveMaxEntries) return kErrArchiveTooLarge;
    bytes += item.kind == 0 ? item.size : 0;
    if (bytes > kArchiveMaxBytes) return kErrArchiveTooLarge;
    found.push_back(item);
    return kOk;
  };
  for (const Item& top : chosen) {
    int rc = add(top);
    if (rc != kOk) return rc;
    if (top.kind != 1) continue;
    std::vector<Item> below;
    // One more than may be carried is enough to tell that it is too many.
    if ((rc = ListDescendants(store, top, kArchiveMaxEntries + 1, &below)) != kOk) return rc;
    for (const Item& item : below) {
      if ((rc = add(item)) != kOk) return rc;
    }
  }
  std::sort(found.begin(), found.end(), [](const Item& a, const Item& b) { return a.path < b.path; });
  entries->clear();
  for (const Item& item : found) entries->push_back({item.path.substr(folder.path.size() + 1), item});
  return kOk;
}

// "archive": the listed folder ("path", "item"), or the items of
// "items" (a JSON array of file ids below it), as "<folder>.zip".
void FilesArchiveFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  Store* store = OpenStoreOrLog();
  if (!store) return response->SetError(kErrStore);
  Access access;
  int rc = ResolveRequestItem(*store, *request, &access);
  if (rc != kOk) return response->SetError(rc);
  const Item& folder = access.item;
  if (folder.removed) return response->SetError(kErrNoSuchItem);
  if (!CapabilitiesOf(access.role).can_read) return response->SetError(kErrNoAccess);
  if (folder.kind != 1) return response->SetError(kErrNotAFolder);

  std::vector<Item> chosen;
  if ((rc = ChosenItems(*store, *request, folder, &chosen)) != kOk) return response->SetError(rc);
  std::vector<ArchiveEntry> entries;
  if ((rc = ArchiveEntries(*store, folder, chosen, &entries)) != kOk) return response->SetError(rc);
  if (Zipper() == nullptr) return response->SetError(kErrStore);

  response->SetEnableOutput(false);
  const std::string head = "Status: 200 OK\r\nContent-Type: application/zip\r\nContent-Disposition: " +
                           ContentDisposition(folder.name + ".zip") +
                           "\r\nX-Content-Type-Options: nosniff\r\n\r\n";
  fwrite(head.data(), 1, head.size(), stdout);
  Zipper()->write(stdout, entries, &Store::ContentFile);
}

}  // namespace plyth_services
