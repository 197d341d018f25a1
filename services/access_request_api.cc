// "ZANT.BrindlexPlyth.AccessRequest" "create": a signed-in user who may not
// open a permanent link asks the item's owner for access.
#include "access.h"
#include "access_requests.h"
#include "api_support.h"
#include "items.h"
#include "service_errors.h"
#include "services_api.h"

namespace plyth_services {

namespace {

const char kLinkPrefix[] = "link:";

// The permanent link of "link:<permanent link>", or "".
std::string LinkOf(const std::string& path) {
  const size_t prefix = sizeof(kLinkPrefix) - 1;
  return path.compare(0, prefix, kLinkPrefix) == 0 ? path.substr(prefix) : std::string();
}

}  // namespace

void AccessRequestCreateFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  std::string path;
  std::string message;
  if (!TextParam(*request, "path", true, &path) || LinkOf(path).empty() ||
      !TextParam(*request, "message", false, &message) || message.size() > kMaxRequestMessage) {
    return response->SetError(kErrBadParameter);
  }
  // Only an account can be made a member.
  const Caller caller = CallerFromUser(request->GetLoginUserName());
  if (!caller.signedIn) return response->SetError(kErrNoAccess);
  Store* store = OpenStoreOrLog();
  if (!store) return response->SetError(kErrStore);
  Item item;
  int rc = FindItemByLink(*store, LinkOf(path), &item);
  if (rc == kOk && item.removed) rc = kErrNoSuchItem;
  if (rc == kOk) rc = AddAccessRequest(*store, item, caller.user, message);
  if (rc != kOk) return response->SetError(rc);
  response->SetSuccess(Json::Value(Json::objectValue));
}

}  // namespace plyth_services
