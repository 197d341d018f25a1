#include "json_readers.h"
#include "mobile_route.h"
#include "page_output.h"

namespace {

const char kMobileTemplate[] = "/var/packages/BrindlexPlyth/target/webapi/plyth/shard/mobile.html";
const char kScriptDir[] = "webman/3rdparty/BrindlexPlyth-Plyth/js/mobile/";
const char kPlythTheme[] = "zant-dm-plyth-theme";
const char kFileTheme[] = "zant-dm-file-theme";

std::string Script(const char* name) { return std::string(kScriptDir) + name; }

}  // namespace

Json::Value MobileRoute::GetAnonymousPage() const {
  std::string title = GetText("plyth", "displayname");
  Json::Value state = GetBaseState();
  state["host_info"] = GetHostInfo();
  state["btns"].append(GetText("mobile", "open_in_app"));
  state["btns"].append(GetText("mobile", "open_the_link"));
  return GetTplValues(kPlythTheme, title, title, GetText("mobile", "choose_action"),
                      {Script("anonymous.js")}, state);
}

// The record is handed over but not shown: the visitor may not see it.
Json::Value MobileRoute::GetPermErrorPage(const Json::Value& /*file*/) const {
  std::string title = GetText("request", "no_perm_title");
  Json::Value state = GetBaseState();
  state["account"] = account_;
  state["i18n"]["title"] = GetText("mobile", "request_sent");
  state["i18n"]["sent"] = GetText("request", "sent");
  state["btns"].append(GetText("request", "access"));
  state["btns"].append(GetText("request", "switch_account"));
  return GetTplValues(kFileTheme, title, title, GetText("request", "user"),
                      {Script("perm.js")}, state);
}

// The item's name is the page title and the description.
// QUIRK: the content title stays empty; the info script draws its own heading.
Json::Value MobileRoute::GetInfoPage(const Json::Value& file, bool previewOnly) const {
  std::string name = MemberText(file, "name");
  Json::Value state = GetBaseState();
  state["host_info"] = GetHostInfo();
  state["file_info"]["file_id"] = Member(file, "file_id");
  state["file_info"]["name"] = Member(file, "name");
  state["file_info"]["type"] = Member(file, "type");
  state["btns"].append(GetText("mobile", "open_in_app"));
  if (!previewOnly) state["btns"].append(GetText("action", "download"));
  return GetTplValues(kFileTheme, name, "", name, {Script("info.js")}, state);
}

Json::Value MobileRoute::GetExpiredPage() const {
  std::string title = GetText("share", "expired_title");
  Json::Value state(Json::objectValue);
  state["permanent_link"] = permanentLink_;
  state["sharing_link"] = sharingLink_;
  state["zant_token"] = token_;
  return GetTplValues(kFileTheme, title, title, GetText("share", "expired_link_desc"),
                      {Script("expired.js")}, state);
}

Json::Value MobileRoute::GetInvalidLinkPage() const {
  std::string title = GetText("request", "not_exist_title");
  return GetTplValues(kFileTheme, title, title, GetText("error", "item_not_exist"),
                      {Script("invalid.js")}, GetBaseState());
}

void WriteMobilePage(ZANT::APIResponse* response, const MobileRoute& route, int pageCode,
                     const Json::Value& file) {
  Json::Value values;  // an unknown code writes the template unfilled
  switch (pageCode) {
    case 0:
      // Exact comparison: "Anonymous" is a user name like any other.
      values = route.GetAccount() == "anonymous" ? route.GetAnonymousPage()
                                                 : route.GetPermErrorPage(file);
      break;
    case 1:
      values = route.GetInfoPage(file, false);
      break;
    case 2:
      values = route.GetInfoPage(file, true);
      break;
    case 3:
      values = route.GetInvalidLinkPage();
      break;
    case 4:
      values = route.GetExpiredPage();
      break;
    default:
      break;
  }
  RenderTemplatePage(response, kMobileTemplate, values);
}
