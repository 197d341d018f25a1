// Method "get": what a visitor's browser reaches when it opens a sharing link
// ("/d/s/...") or a permanent link ("/d/f/..."). Resolves the link through the
// link service, keeps the unlock token of a sharing link in a cookie, and
// answers with exactly one of: a redirect into the office editor or the web
// application, the desktop landing page, or a page for phones and tablets.
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <json/json.h>

#include "json_readers.h"
#include "mobile_route.h"
#include "plyth_utils.h"
#include "redirect.h"
#include "shard_api.h"
#include "share_page.h"
#include "zant/logger.h"
#include "zant/webapi.h"
#include "zant/webman.h"

namespace {

const char kLoggerLevelFile[] = "/var/packages/BrindlexPlyth/target/etc/syncfolder.debug";
const char kLoggerComponent[] = "default_component";
const char kAnonymous[] = "anonymous";
const char kSharingCookiePrefix[] = "plyth-sharing-";

// Page codes handed to the pages.
enum PageCode {
  kPageNotAvailable = 0,
  kPageReadable = 1,
  kPagePreviewOnly = 2,
  kPageInvalidLink = 3,
  kPageExpired = 4,
  kPageNeedPassword = 5,
};

// Link-service codes this method acts on.
const int kErrNoAccess = 1002;
const int kErrNeedPassword = 1037;
const int kErrExpired = 1038;

// Sign-in results of WebMan::CheckAuthorized that count as signed in.
const int kAuthorizedWebServer = -7;
const int kAuthorizedUser = 1;
const int kAuthorizedAdmin = 2;

// Line numbers that the sync service's log lines of this method carry.
const int kLineFetchFailed = 565;
const int kLineFileRemoved = 568;
const int kLineFetchAfterAuthFailed = 584;

int ThreadIdForLog() { return static_cast<int>(syscall(SYS_gettid) % 100000); }

void LogCannotGetFile(int line, const std::string& linkId, const std::string& sharingToken) {
  if (!Logger::IsNeedToLog(Logger::kError, kLoggerComponent)) return;
  Logger::LogMsg(Logger::kError, kLoggerComponent,
                 "(%5d:%5d) [ERROR] get(%d): cannot get file : link: %s, sharing_token: %s.",
                 static_cast<int>(getpid()), ThreadIdForLog(), line, linkId.c_str(),
                 sharingToken.c_str());
}

void LogFileRemoved(const std::string& linkId, const std::string& sharingToken) {
  if (!Logger::IsNeedToLog(Logger::kDebug, kLoggerComponent)) return;
  Logger::LogMsg(Logger::kDebug, kLoggerComponent,
                 "(%5d:%5d) [DEBUG] get(%d): advance sharing file is removed : link: %s, "
                 "sharing_token: %s.",
                 static_cast<int>(getpid()), ThreadIdForLog(), kLineFileRemoved, linkId.c_str(),
                 sharingToken.c_str());
}

bool CapabilityFlag(const Json::Value& file, const char* key) {
  return MemberFlag(Member(file, "capabilities"), key);
}

// Raw CGI header lines go straight to stdout, ahead of whatever the page or
// the framework writes later in the request.
void WriteHeaderLine(const std::string& line) {
  fputs(line.c_str(), stdout);
  fflush(stdout);
}

// The whole name must match ".*\.(kdoc|ksheet|kslides)$" as an ECMAScript
// expression, whose "." stops at CR and LF: a name holding either is never an
// office document. Spelled out, since a regular expression costs more than the
// rest of the landing.
bool IsOfficeDocument(const Json::Value& file) {
  static const char* const kSuffixes[] = {".kdoc", ".ksheet", ".kslides"};
  const std::string name = MemberText(file, "name");
  if (name.find_first_of("\r\n") != std::string::npos) return false;
  for (const char* suffix : kSuffixes) {
    const size_t length = strlen(suffix);
    if (name.size() >= length && name.compare(name.size() - length, length, suffix) == 0) {
      return true;
    }
  }
  return false;
}

// What one request has found out about its link.
struct Landing {
  std::string user;
  std::string nxoToken;
  Json::Value file;
  int pageCode = kPageInvalidLink;
  bool isMobile = false;
};

void WriteLandingPage(ZANT::APIRequest* request, ZANT::APIResponse* response,
                      const std::string& linkId, const std::string& sharingLink,
                      const Landing& landing) {
  // A password prompt exists on the desktop page only, so 5 never goes mobile.
  if (landing.isMobile && landing.pageCode != kPageNeedPassword) {
    MobileRoute route(request, linkId, sharingLink, landing.user, landing.nxoToken);
    WriteMobilePage(response, route, landing.pageCode, landing.file);
    return;
  }
  WriteSharePage(request, response, linkId, sharingLink, landing.file, landing.nxoToken);
}

// Sharing link: token from the cookie, else a password-less unlock. Answers
// true when it has already answered with a redirect.
bool ResolveSharingLink(ZANT::APIRequest* request, ZANT::APIResponse* response,
                        const std::string& linkId, const std::string& sharingLink,
                        Landing& landing) {
  const std::string cookieName = kSharingCookiePrefix + sharingLink;
  std::string sharingToken;
  bool fileOk = request->HasCookie(cookieName);
  if (fileOk) {
    sharingToken = request->GetCookie(cookieName, "");
    int ret = PlythFileGet(kAnonymous, linkId, sharingToken, landing.file);
    if (ret == 0 && !MemberFlag(landing.file, "removed")) {
      landing.pageCode = kPageReadable;
    } else {
      if (ret == 0) {
        LogFileRemoved(linkId, sharingToken);
      } else {
        LogCannotGetFile(kLineFetchFailed, linkId, sharingToken);
      }
      sharingToken.clear();
      fileOk = false;
      landing.pageCode = kPageInvalidLink;
    }
  } else {
    landing.pageCode = kPageInvalidLink;
  }

  if (sharingToken.empty()) {
    int ret = PlythSharingAuth(sharingLink, "", sharingToken);
    if (ret == kErrNeedPassword) {
      fileOk = false;
      landing.pageCode = kPageNeedPassword;
    } else if (ret == kErrExpired) {
      fileOk = false;
      landing.pageCode = kPageExpired;
    } else if (ret == 0) {
      WriteHeaderLine("Set-Cookie: " + cookieName + "=" + sharingToken + "; path=/\r\n");
      if (PlythFileGet(kAnonymous, linkId, sharingToken, landing.file) != 0) {
        LogCannotGetFile(kLineFetchAfterAuthFailed, linkId, sharingToken);
      }
      // QUIRK: a failed fetch right after a successful unlock still counts as readable.
      // The page is built from whatever the record holds.
      fileOk = true;
      landing.pageCode = kPageReadable;
    }
    // Any other code keeps fileOk and the page code as the cookie left them.
    if (sharingToken.empty() && request->HasCookie(cookieName)) {
      WriteHeaderLine("Set-Cookie: " + cookieName +
                      "=; expires=Thu, 01 Jan 1970 00:00:00 GMT; path=/\r\n");
    }
  }

  // Phones look at the read right; desktop browsers leave it to the page.
  if (fileOk && landing.isMobile && !CapabilityFlag(landing.file, "can_read")) {
    landing.pageCode = kPagePreviewOnly;
  }
  if (landing.pageCode != kPageReadable && landing.pageCode != kPagePreviewOnly) return false;
  if (!IsOfficeDocument(landing.file)) return false;
  RedirectOffice(request, response, landing.file, sharingLink);
  return true;
}

// The visitor's account for a permanent link; false when a user named by the
// web server fails the desktop sign-in check.
bool ChoosePermanentLinkUser(ZANT::APIRequest* request, Landing& landing) {
  landing.user = request->GetLoginUserName();
  if (request->GetLoginUID() != -1) return true;
  const char* serverUser = getenv("USERNAME");
  if (request->GetAuthResult() != ZANT::kAuthWebServer || serverUser == nullptr) {
    landing.user = kAnonymous;
    return true;
  }
  landing.user = serverUser;
  WebMan webman(true);
  int authorized = webman.CheckAuthorized(31, CGI_POSITION_WEBAPI, false);
  if (authorized != kAuthorizedWebServer && authorized != kAuthorizedUser &&
      authorized != kAuthorizedAdmin) {
    return false;
  }
  landing.nxoToken = webman.GetZantToken(false);
  return true;
}

// Permanent link: fetched as the visitor. Answers true when it has already
// answered with a redirect into the web application.
bool ResolvePermanentLink(ZANT::APIRequest* request, ZANT::APIResponse* response,
                          const std::string& linkId, Landing& landing) {
  if (!ChoosePermanentLinkUser(request, landing)) {
    landing.pageCode = kPageInvalidLink;
    return false;
  }
  int ret = PlythFileGet(landing.user, linkId, "", landing.file);
  if (ret != 0) {
    landing.pageCode = ret == kErrNoAccess ? kPageNotAvailable : kPageInvalidLink;
    return false;
  }
  if (MemberFlag(landing.file, "removed")) {
    landing.pageCode = kPageInvalidLink;
    return false;
  }
  if (!CapabilityFlag(landing.file, "can_preview")) {
    landing.pageCode = kPageNotAvailable;
    return false;
  }
  if (landing.isMobile) {
    landing.pageCode = CapabilityFlag(landing.file, "can_read") ? kPageReadable : kPagePreviewOnly;
    return false;
  }
  landing.pageCode = kPageReadable;  // the desktop page takes no code
  if (landing.user == kAnonymous) return false;
  const std::string displayPath = MemberText(landing.file, "display_path");
  if (displayPath.empty() || displayPath[0] != '/') return false;
  RedirectFunc(request, response, landing.file);
  return true;
}

}  // namespace

void GetFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  Logger::Initialize(0, "", kLoggerLevelFile, 50, 1);
  const std::string sharingLink = JsonText(request->GetParamRef("sharing_link", ""));
  const std::string linkId = JsonText(request->GetParamRef("link_id", ""));

  Landing landing;
  landing.user = kAnonymous;
  landing.isMobile = MobileRoute::IsMobile(request);
  if (linkId.empty()) {
    // QUIRK: the invalid-link page is written, yet the error stays on the response.
    response->SetError(kErrShardBadLink, Json::Value());
    if (sharingLink.empty()) landing.user = request->GetLoginUserName();
    landing.pageCode = kPageInvalidLink;
  } else if (sharingLink.empty()) {
    if (ResolvePermanentLink(request, response, linkId, landing)) return;
  } else {
    if (ResolveSharingLink(request, response, linkId, sharingLink, landing)) return;
  }
  WriteLandingPage(request, response, linkId, sharingLink, landing);
}
