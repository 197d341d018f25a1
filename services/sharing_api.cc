// "ZANT.BrindlexPlyth.AdvanceSharing.Public" "auth": unlocks a sharing
// link, answering the token that later calls present.
#include "api_support.h"
#include "service_errors.h"
#include "services_api.h"
#include "sharing.h"

namespace plyth_services {

void SharingAuthFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  std::string link;
  std::string password;
  if (!TextParam(*request, "sharing_link", true, &link) || link.empty() ||
      !TextParam(*request, "password", false, &password)) {
    return response->SetError(kErrBadParameter);
  }
  Store* store = OpenStoreOrLog();
  if (!store) return response->SetError(kErrStore);
  // In-process calls carry no address; their wrong passwords share one count per link.
  const std::string client = request->GetEnv("REMOTE_ADDR", Json::Value("")).asString();
  std::string token;
  int rc = AuthenticateSharingLink(*store, link, password, client, &token);
  if (rc != kOk) return response->SetError(rc);
  Json::Value data(Json::objectValue);
  data["sharing_token"] = token;
  response->SetSuccess(data);
}

}  // namespace plyth_services
