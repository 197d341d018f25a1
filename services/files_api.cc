// "ZANT.BrindlexPlyth.Files": the record of a linked item as its caller
// may see it, and the item's content.
#include <sys/stat.h>

#include <cstdio>

#include "access.h"
#include "api_support.h"
#include "download.h"
#include "files_access.h"
#include "item_records.h"
#include "items.h"
#include "service_errors.h"
#include "services_api.h"
#include "sharing.h"

namespace plyth_services {

namespace {

const char kLinkPrefix[] = "link:";
const char kIdPrefix[] = "id:";
const char kSharingCookiePrefix[] = "plyth-sharing-";

struct Target {
  bool byLink = true;
  std::string key;
};

bool StartsWith(const std::string& text, const char* prefix, size_t size) {
  return text.compare(0, size - 1, prefix) == 0;
}

// "link:<permanent link>" or "id:<file id>".
bool ParseTarget(const std::string& path, Target* target) {
  if (StartsWith(path, kLinkPrefix, sizeof(kLinkPrefix))) {
    target->byLink = true;
    target->key = path.substr(sizeof(kLinkPrefix) - 1);
  } else if (StartsWith(path, kIdPrefix, sizeof(kIdPrefix))) {
    target->byLink = false;
    target->key = path.substr(sizeof(kIdPrefix) - 1);
  } else {
    return false;
  }
  return !target->key.empty();
}

// The token from "sharing_token"; without it, a browser that names its
// "sharing_link" is taken at the word of its token cookie.
bool TokenOf(const ZANT::APIRequest& request, std::string* token) {
  if (!TextParam(request, "sharing_token", false, token)) return false;
  if (!token->empty()) return true;
  std::string sharingLink;
  if (!TextParam(request, "sharing_link", false, &sharingLink)) return false;
  if (!sharingLink.empty()) *token = request.GetCookie(kSharingCookiePrefix + sharingLink, "");
  return true;
}

}  // namespace

// The caller's role on the item the request names. The owner and members
// hold theirs by name; a permanent link lends its role as its visibility
// allows; a token lends its sharing link's role. The highest wins.
int ResolveAccess(Store& store, const ZANT::APIRequest& request, Access* access) {
  std::string path;
  std::string token;
  Target target;
  if (!TextParam(request, "path", true, &path) || !ParseTarget(path, &target) ||
      !TokenOf(request, &token)) {
    return kErrBadParameter;
  }
  int rc = target.byLink ? FindItemByLink(store, target.key, &access->item)
                         : FindItemById(store, target.key, &access->item);
  if (rc != kOk) return rc;
  const Item& item = access->item;

  const Caller caller = CallerFromUser(request.GetLoginUserName());
  Role role = Role::kNone;
  if (caller.signedIn) {
    if (caller.user == item.owner_name) {
      role = Role::kOwner;
    } else if ((rc = MemberRole(store, item, caller.user, &role)) != kOk) {
      return rc;
    }
  }
  access->insider = role != Role::kNone;
  if (target.byLink) role = MaxRole(role, RoleFromLink(item.visibility, item.link_role, caller.signedIn));
  if (!token.empty()) {
    Role lent = Role::kNone;
    if ((rc = RoleFromToken(store, token, item.permanent_link, &lent)) != kOk) return rc;
    role = MaxRole(role, lent);
  }
  if (role == Role::kNone) return kErrNoAccess;
  access->role = role;
  return kOk;
}

namespace {

// How a refused download reads to a browser that navigated to it: the
// HTTP status and the key of its texts in section [download] of the
// desktop UI texts.
struct Refusal {
  int code;
  const char* status;
  const char* key;
};
const Refusal kRefusals[] = {
    {kErrBadParameter, "400 Bad Request", "bad_request"},
    {kErrNoSuchItem, "404 Not Found", "not_found"},
    {kErrItemRemoved, "410 Gone", "removed"},
    {kErrNoAccess, "403 Forbidden", "denied"},
    {kErrNotAFile, "403 Forbidden", "folder"},
    {kErrBadToken, "403 Forbidden", "expired"},
};
const Refusal kOtherRefusal = {kErrStore, "500 Internal Server Error", "failed"};

// The language tags of the appliance's language codes.
const struct {
  const char* code;
  const char* tag;
} kLanguageTags[] = {{"enu", "en"}, {"ger", "de"}};

std::string LanguageTag(const std::string& code) {
  for (const auto& entry : kLanguageTags) {
    if (code == entry.code) return entry.tag;
  }
  return "en";
}

// A browser opening the address itself (a link, a typed address), as
// opposed to a script calling the API, which is answered in JSON.
bool IsNavigation(const ZANT::APIRequest& request) {
  const std::string mode = request.GetEnv("HTTP_SEC_FETCH_MODE", "").asString();
  if (!mode.empty()) return mode == "navigate";
  return request.GetEnv("HTTP_ACCEPT", "").asString().find("text/html") != std::string::npos;
}

// The checks before the content, in their order.
int DownloadRefusal(Store& store, const ZANT::APIRequest& request, Access* access) {
  int rc = ResolveRequestItem(store, request, access);
  if (rc != kOk) return rc;
  if (access->item.removed) return kErrItemRemoved;
  if (access->item.kind != 0) return kErrNotAFile;
  if (!CapabilitiesOf(access->role).can_read) return kErrNoAccess;
  return kOk;
}

void RefuseDownload(ZANT::APIRequest* request, ZANT::APIResponse* response, int code) {
  if (!IsNavigation(*request)) {
    return response->SetError(code == kErrItemRemoved ? kErrNoSuchItem : code);
  }
  const Refusal* refusal = &kOtherRefusal;
  for (const Refusal& entry : kRefusals) {
    if (entry.code == code) refusal = &entry;
  }
  const std::string lang = LanguageOf(*request);
  const Json::Value texts = TextsOf(kUITexts, lang)["download"];
  auto text = [&](const std::string& key) {
    const Json::Value& value = texts.isObject() ? texts[key] : Json::Value();
    return value.isString() ? value.asString() : std::string();
  };
  response->SetEnableOutput(false);
  WriteRefusalPage(stdout, refusal->status, LanguageTag(lang), text("title"), text(refusal->key));
}

}  // namespace

void FilesGetFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  Store* store = OpenStoreOrLog();
  if (!store) return response->SetError(kErrStore);
  ReadSnapshot snapshot(*store);
  Access access;
  int rc = ResolveAccess(*store, *request, &access);
  if (rc != kOk) return response->SetError(rc);
  Json::Value record;
  rc = BuildFileRecord(*store, access.item, access.role, access.insider, &record);
  if (rc != kOk) return response->SetError(rc);
  response->SetSuccess(std::move(record));
}

void FilesDownloadFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  Store* store = OpenStoreOrLog();
  if (!store) return RefuseDownload(request, response, kErrStore);
  Access access;
  int rc = DownloadRefusal(*store, *request, &access);
  if (rc != kOk) return RefuseDownload(request, response, rc);
  const Item& item = access.item;

  FILE* content = fopen(Store::ContentFile(item.hash).c_str(), "rb");
  struct stat info;
  if (content == nullptr || fstat(fileno(content), &info) != 0) {
    if (content != nullptr) fclose(content);
    return RefuseDownload(request, response, kErrStore);
  }
  response->SetEnableOutput(false);
  const std::string range = request->GetEnv("HTTP_RANGE", "").asString();
  WriteDownload(stdout, item.name, content, static_cast<uint64_t>(info.st_size), range);
  fclose(content);
}

}  // namespace plyth_services
