// Redirects from a landing link into the office editor or the web
// application. Both keep the scheme, host and path prefix through which the
// visitor reached the link, so they work behind any host name, port or alias.
#include "redirect.h"

#include <sstream>
#include <string>

#include "json_readers.h"

namespace {

// Scheme "://" host, then the request path up to `marker` (all of it when
// the marker does not occur).
void WriteOrigin(ZANT::APIRequest* request, const char* marker, std::ostringstream& url) {
  url << request->GetURLProto("") << "://" << EnvText(request, "HTTP_HOST");
  const std::string path = request->GetURLPath("");
  url << path.substr(0, path.find(marker));
}

void AnswerRedirect(ZANT::APIResponse* response, const std::ostringstream& url) {
  response->SetSuccess(Json::Value());
  response->SetHeader("Location", url.str());
}

}  // namespace

void RedirectOffice(ZANT::APIRequest* request, ZANT::APIResponse* response,
                    const Json::Value& file, const std::string& sharingLink) {
  std::ostringstream url;
  WriteOrigin(request, "/d/s/", url);
  url << "/oo/r/" << ZANT::WebAPIUtil::URLEncode(MemberText(file, "permanent_link"))
      << "?sharing_link=" << ZANT::WebAPIUtil::URLEncode(sharingLink);
  AnswerRedirect(response, url);
}

void RedirectFunc(ZANT::APIRequest* request, ZANT::APIResponse* response,
                  const Json::Value& file) {
  std::ostringstream url;
  WriteOrigin(request, "/d/f/", url);
  // QUIRK: "file_id=" is encoded with the id: one launch parameter, decoding to "file_id=<id>".
  url << "/" << "?launchApp=ZANT.QRT.Plyth.Application" << "&launchParam="
      << ZANT::WebAPIUtil::URLEncode("file_id=" + MemberText(file, "file_id"));
  AnswerRedirect(response, url);
}
