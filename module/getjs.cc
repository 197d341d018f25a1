// Method "getjs": the script that the desktop landing page loads. It resolves
// the link as method "get" does, but tells every outcome to the page through
// seven functions on `window` instead of choosing a page or a redirect.
#include <cstdio>
#include <cstdlib>
#include <string>

#include <json/json.h>

#include "json_readers.h"
#include "plyth_utils.h"
#include "shard_api.h"
#include "zant/json_util.h"
#include "zant/logger.h"
#include "zant/qrt.h"
#include "zant/webapi.h"

namespace {

const char kLoggerLevelFile[] = "/var/packages/BrindlexPlyth/target/etc/syncfolder.debug";
const char kAnonymous[] = "anonymous";
const char kSharingCookiePrefix[] = "plyth-sharing-";
const char kPlythTextsDir[] = "/var/packages/BrindlexPlyth/target/plyth/texts/";
const char kOfficeTextsDir[] = "/var/packages/Tabulon/target/ui/texts/";

// Link-service codes told to the page.
const int kErrAuthFailed = 1036;
const int kErrNeedPassword = 1037;
const int kErrExpired = 1038;

void WriteOut(const std::string& text) {
  fwrite(text.data(), 1, text.size(), stdout);
  fflush(stdout);
}

// A permanent link is fetched as the visitor: signed in, named by the web
// server, or anonymous.
std::string PermanentLinkUser(ZANT::APIRequest* request) {
  if (request->GetLoginUID() != -1) return request->GetLoginUserName();
  const char* serverUser = getenv("USERNAME");
  if (request->GetAuthResult() == ZANT::kAuthWebServer && serverUser != nullptr) return serverUser;
  return kAnonymous;
}

// The token of a sharing link, from its cookie or a password-less unlock.
// Answers 0, or the code to tell the page when the unlock failed.
int UnlockSharingLink(ZANT::APIRequest* request, const std::string& sharingLink,
                      std::string& sharingToken) {
  const std::string cookieName = kSharingCookiePrefix + sharingLink;
  if (request->HasCookie(cookieName)) sharingToken = request->GetCookie(cookieName, "");
  if (!sharingToken.empty()) return 0;
  int ret = PlythSharingAuth(sharingLink, "", sharingToken);
  if (ret == 0) {
    // Written at once, so that it stands before the Content-Type line.
    WriteOut("Set-Cookie: " + cookieName + "=" + sharingToken + "; path=/\r\n");
    return 0;
  }
  if (ret == kErrNeedPassword || ret == kErrExpired) return ret;
  // QUIRK: every other unlock failure reaches the page as one code.
  return kErrAuthFailed;
}

// A removed item loses its link as well as its record; an item that may not
// be previewed only its record. Either way the page is told code 0.
void WithholdUnusableRecord(std::string& permanentLink, Json::Value& file) {
  if (MemberFlag(file, "removed")) {
    permanentLink.clear();
    file = Json::Value();
  } else if (!MemberFlag(Member(file, "capabilities"), "can_preview")) {
    file = Json::Value();
  }
}

std::string BuildScript(int errorCode, const std::string& permanentLink,
                        const std::string& sharingLink, const Json::Value& file,
                        const std::string& language) {
  const bool noRecord = file.isNull() || (file.isObject() && file.empty());
  std::string body;
  body += "window.getPlythShareMode=function(){return 'public';}\r\n";
  body += "window.getPlythErrCode=function(){return " + std::to_string(errorCode) + ";}\r\n";
  // The links go between the quotes exactly as received.
  body += "window.getPlythLink=function(){return \"" + permanentLink + "\";}\r\n";
  body += "window.getPlythSharingLink=function(){return \"" + sharingLink + "\";}\r\n";
  body += "window.getPlythFile=function(){return " +
          (noRecord ? std::string() : ZANT::JsonToString(file)) + ";}\r\n";
  body += "window.getPlythTexts=function(){return ";
  body += *ZANT::QRT::LocalizedStringParser::TextsJson(kPlythTextsDir + language);
  body += ";}\r\n";
  body += "window.getOfficeTexts=function(){return ";
  body += *ZANT::QRT::LocalizedStringParser::TextsJson(kOfficeTextsDir + language);
  body += ";}";
  return body;
}

}  // namespace

void GetJSFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  Logger::Initialize(0, "", kLoggerLevelFile, 50, 1);
  const std::string sharingLink = JsonText(request->GetParamRef("sharing_link", ""));
  const ZANT::APIParameter<std::string> linkParam =
      request->GetAndCheckString("permanent_link", ZANT::kParamOptional, nullptr);

  std::string body;
  if (linkParam.IsInvalid()) {
    response->SetError(kErrShardBadLink, Json::Value());
  } else {
    std::string permanentLink = linkParam.Get();
    std::string user = kAnonymous;
    std::string sharingToken;
    Json::Value file;
    int errorCode = 0;
    if (sharingLink.empty()) {
      user = PermanentLinkUser(request);
    } else {
      errorCode = UnlockSharingLink(request, sharingLink, sharingToken);
    }
    if (errorCode == 0) {
      errorCode = PlythFileGet(user, permanentLink, sharingToken, file);
      if (errorCode == 0) WithholdUnusableRecord(permanentLink, file);
    }
    response->SetEnableOutput(false);
    body = BuildScript(errorCode, permanentLink, sharingLink, file, request->GetUILanguage());
  }

  if (response->IsEnableOutput()) return;
  // QUIRK: no blank after the colon, and the charset in quotes.
  WriteOut("Content-Type:application/javascript; charset=\"UTF-8\"\r\n\r\n" + body);
}
