// "ZANT.BrindlexPlyth.Files" "preview" and "preview_info": what a viewer
// shows of an item the caller may preview. A rendition is always made
// anew from the content (scaled, re-encoded, or the opening text), so a
// caller who may only preview never receives the file itself.
#include <cstdio>
#include <string>

#include "api_support.h"
#include "files_access.h"
#include "items.h"
#include "preview.h"
#include "service_errors.h"
#include "services_api.h"

namespace plyth_services {

namespace {

// PDF pages a viewer may ask for (a bound for the parameter, not a limit
// of the documents: a page past the end gets no rendition).
constexpr int64_t kMaxPage = 100000;

void WriteRendition(const char* type, const std::string& body) {
  std::string head = "Status: 200 OK\r\nContent-Type: ";
  head += type;
  head += "\r\nContent-Length: " + std::to_string(body.size()) +
          "\r\nCache-Control: private, max-age=3600\r\nX-Content-Type-Options: nosniff\r\n\r\n";
  fwrite(head.data(), 1, head.size(), stdout);
  fwrite(body.data(), 1, body.size(), stdout);
  fflush(stdout);
}

// The first kTextPreviewBytes, and a few more to tell a character that the
// limit cuts from one that the file's end cuts.
int ReadTextStart(const Item& item, std::string* text) {
  FILE* in = fopen(Store::ContentFile(item.hash).c_str(), "rb");
  if (in == nullptr) return kErrStore;
  std::string bytes(kTextPreviewBytes + 4, '\0');
  bytes.resize(fread(&bytes[0], 1, bytes.size(), in));
  const bool failed = ferror(in) != 0;
  fclose(in);
  if (failed) return kErrStore;
  *text = TextExcerpt(bytes);
  return kOk;
}

// The item a preview method names, with what the caller may see of it.
int Previewable(const ZANT::APIRequest& request, Access* access, PreviewKind* kind) {
  Store* store = OpenStoreOrLog();
  if (!store) return kErrStore;
  int rc = ResolveRequestItem(*store, request, access);
  if (rc != kOk) return rc;
  if (access->item.removed) return kErrNoSuchItem;
  const Tarnova::Capabilities caps = CapabilitiesOf(access->role);
  if (!caps.can_preview) return kErrNoAccess;
  *kind = PreviewKindOf(access->item, caps.can_read);
  return kOk;
}

}  // namespace

void FilesPreviewFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  Access access;
  PreviewKind kind = PreviewKind::kNone;
  int rc = Previewable(*request, &access, &kind);
  if (rc != kOk) return response->SetError(rc);

  std::string body;
  if (kind == PreviewKind::kText) {
    if ((rc = ReadTextStart(access.item, &body)) != kOk) return response->SetError(rc);
    response->SetEnableOutput(false);
    return WriteRendition("text/plain; charset=utf-8", body);
  }
  if (kind != PreviewKind::kImage && kind != PreviewKind::kPdf) return response->SetError(kErrNoPreview);
  int64_t size = 0;
  int64_t page = 1;
  if (!IntParam(*request, "size", 0, 1, INT32_MAX, &size) || !IsPreviewSize(size) ||
      !IntParam(*request, "page", 1, 1, kind == PreviewKind::kPdf ? kMaxPage : 1, &page)) {
    return response->SetError(kErrBadParameter);
  }
  rc = Rendition(access.item, kind, static_cast<int>(size), static_cast<int>(page), &body);
  if (rc != kOk) return response->SetError(rc);
  response->SetEnableOutput(false);
  WriteRendition("image/jpeg", body);
}

void FilesPreviewInfoFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  Access access;
  PreviewKind kind = PreviewKind::kNone;
  int rc = Previewable(*request, &access, &kind);
  if (rc != kOk) return response->SetError(rc);
  Json::Value data(Json::objectValue);
  if (kind == PreviewKind::kPdf) {
    int pages = 0;
    if (PdfPageCount(access.item, &pages) == kOk) {
      data["pages"] = pages;
    } else {
      kind = PreviewKind::kNone;  // damaged: the type icon instead
    }
  }
  data["kind"] = PreviewKindName(kind);
  data["text_limit"] = Json::UInt64(kTextPreviewBytes);
  response->SetSuccess(data);
}

}  // namespace plyth_services
