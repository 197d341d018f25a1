#include "folder_archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <set>

#include "api_support.h"
#include "download.h"
#include "files_access.h"
#include "service_errors.h"
#include "services_api.h"

namespace plyth_services {

namespace {

// Content that deflate would only make slower, stored as it is.
const char kStoredExtensions[] = " jpg jpeg png gif webp heic mp3 mp4 m4a m4v mov webm ogg zip gz 7z docx xlsx pptx ";

bool IsCompressed(const std::string& name) {
  size_t dot = name.rfind('.');
  if (dot == std::string::npos || name.find(' ', dot) != std::string::npos) return false;
  std::string extension = name.substr(dot + 1);
  for (char& c : extension) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return std::string(kStoredExtensions).find(" " + extension + " ") != std::string::npos;
}

la_ssize_t WriteOut(struct archive*, void* client, const void* buffer, size_t length) {
  FILE* out = static_cast<FILE*>(client);
  return fwrite(buffer, 1, length, out) == length ? static_cast<la_ssize_t>(length) : -1;
}

struct ArchiveFree {
  void operator()(struct archive* a) const { archive_write_free(a); }
};
struct EntryFree {
  void operator()(archive_entry* e) const { archive_entry_free(e); }
};

bool WriteContent(struct archive* zip, const Item& item) {
  FILE* in = fopen(Store::ContentFile(item.hash).c_str(), "rb");
  if (in == nullptr) return false;
  char buffer[65536];
  size_t got;
  uint64_t left = item.size;
  bool ok = true;
  while (ok && left > 0 && (got = fread(buffer, 1, std::min<uint64_t>(sizeof(buffer), left), in)) > 0) {
    ok = archive_write_data(zip, buffer, got) == static_cast<la_ssize_t>(got);
    left -= got;
  }
  fclose(in);
  return ok && left == 0;
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

bool WriteZip(FILE* out, const std::vector<ArchiveEntry>& entries) {
  std::unique_ptr<struct archive, ArchiveFree> zip(archive_write_new());
  // Names are UTF-8 in the store and marked as UTF-8 in the archive.
  if (archive_write_set_format_zip(zip.get()) != ARCHIVE_OK ||
      archive_write_set_options(zip.get(), "zip:hdrcharset=UTF-8") != ARCHIVE_OK ||
      archive_write_set_bytes_in_last_block(zip.get(), 1) != ARCHIVE_OK ||
      archive_write_open(zip.get(), out, nullptr, WriteOut, nullptr) != ARCHIVE_OK) {
    return false;
  }
  std::unique_ptr<archive_entry, EntryFree> header(archive_entry_new());
  for (const ArchiveEntry& entry : entries) {
    const bool dir = entry.item.kind == 1;
    archive_entry_clear(header.get());
    archive_entry_set_pathname_utf8(header.get(), dir ? (entry.name + "/").c_str() : entry.name.c_str());
    archive_entry_set_filetype(header.get(), dir ? AE_IFDIR : AE_IFREG);
    archive_entry_set_perm(header.get(), dir ? 0755 : 0644);
    archive_entry_set_mtime(header.get(), entry.item.modified_time, 0);
    archive_entry_set_size(header.get(), dir ? 0 : static_cast<la_int64_t>(entry.item.size));
    if (IsCompressed(entry.name)) {
      archive_write_zip_set_compression_store(zip.get());
    } else {
      archive_write_zip_set_compression_deflate(zip.get());
    }
    if (archive_write_header(zip.get(), header.get()) != ARCHIVE_OK) return false;
    if (!dir && !WriteContent(zip.get(), entry.item)) return false;
  }
  const bool closed = archive_write_close(zip.get()) == ARCHIVE_OK;
  fflush(out);
  return closed;
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

  response->SetEnableOutput(false);
  const std::string head = "Status: 200 OK\r\nContent-Type: application/zip\r\nContent-Disposition: " +
                           ContentDisposition(folder.name + ".zip") +
                           "\r\nX-Content-Type-Options: nosniff\r\n\r\n";
  fwrite(head.data(), 1, head.size(), stdout);
  WriteZip(stdout, entries);
}

}  // namespace plyth_services
