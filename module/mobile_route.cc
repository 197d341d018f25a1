#include "mobile_route.h"

#include "json_readers.h"
#include "page_output.h"
#include "zant/json_util.h"
#include "zant/qrt.h"

namespace {

const char kTextsDir[] = "/var/packages/BrindlexPlyth/target/plyth/texts/";
const char kMobileFavicon[] =
    "webman/3rdparty/BrindlexPlyth-Plyth/images/_Asset/_Favicon/Plyth_16.png";
const char kMobileCSS[] = "webman/3rdparty/BrindlexPlyth-Plyth/mobile.css";
const char kMobileCommonJS[] = "webman/3rdparty/BrindlexPlyth-Plyth/js/mobile/common.js";

}  // namespace

MobileRoute::MobileRoute(ZANT::APIRequest* request, const std::string& permanentLink,
                         const std::string& sharingLink, const std::string& account,
                         const std::string& token)
    : request_(request),
      permanentLink_(permanentLink),
      sharingLink_(sharingLink),
      account_(account),
      token_(token),
      // The language code is appended with no "/" after it.
      texts_(ZANT::QRT::LocalizedStringParser::ParseTexts(kTextsDir +
                                                          request->GetUILanguage())) {}

bool MobileRoute::IsMobile(ZANT::APIRequest* request) {
  std::string agent = EnvText(request, "HTTP_USER_AGENT");
  if (agent.empty()) return false;
  for (const char* device : {"Android", "iPhone", "iPad", "iPod"}) {
    if (agent.find(device) != std::string::npos) return true;
  }
  return false;
}

std::string MobileRoute::GetText(const std::string& section, const std::string& key) const {
  if (!texts_.isObject()) return "";
  const Json::Value& keys = texts_[section];
  if (!keys.isObject()) return "";
  const Json::Value& text = keys[key];
  return text.isString() ? text.asString() : "";
}

Json::Value MobileRoute::GetHostInfo() const {
  Json::Value info(Json::objectValue);
  info["host"] = request_->GetURLHost("");
  info["https"] = request_->GetURLProto("") == "https";
  info["account"] = account_;

  // Asked on every use; a failed call only leaves "qv_id" out.
  Json::Value result;
  ZANT::APIRunner::Exec(result, "ZANT.BrindlexPlyth.Info", 1, "get", Json::Value(), "admin");
  const Json::Value& answer = result;
  if (answer.isObject() && answer["data"].isObject() && answer["data"].isMember("qv_id")) {
    info["qv_id"] = answer["data"]["qv_id"];
  }
  return info;
}

Json::Value MobileRoute::GetBaseState() const {
  Json::Value state(Json::objectValue);
  state["permanent_link"] = permanentLink_;
  state["sharing_link"] = sharingLink_;
  state["zant_token"] = token_;
  return state;
}

std::string MobileRoute::GetJSTags(const std::vector<std::string>& scripts) const {
  std::string tags;
  auto add = [&tags](const std::string& path) {
    tags += "<script type=\"text/javascript\" src=\"" + VersionedURL(path) + "\"></script>\n";
  };
  add(kMobileCommonJS);
  for (const std::string& path : scripts) add(path);
  return tags;
}

Json::Value MobileRoute::GetTplValues(const std::string& bodyClass, const std::string& title,
                                      const std::string& contentTitle,
                                      const std::string& contentDesc,
                                      std::vector<std::string> scripts,
                                      const Json::Value& state) const {
  Json::Value values(Json::objectValue);
  values["TITLE"] = HtmlEscape(title);
  values["FAVICON"] = kMobileFavicon;
  values["BODY_CLASS"] = bodyClass;
  values["CSS"] = "<link rel=\"stylesheet\" href=\"" + VersionedURL(kMobileCSS) +
                  "\" type=\"text/css\" charset=\"utf-8\">";
  values["CONTENT_TITLE"] = HtmlEscape(contentTitle);
  values["CONTENT_DESC"] = HtmlEscape(contentDesc);
  values["JS_TAGS"] = GetJSTags(scripts);
  // The page scripts parse the state back from this attribute-safe text.
  values["STATE"] = HtmlEscape(ZANT::JsonToString(state));
  return values;
}
