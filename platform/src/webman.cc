// The desktop session library over the request being dispatched.
#include <cstdlib>

#include "zant/vlibc.h"
#include "zant/webapi.h"
#include "zant/webman.h"

namespace {

const int kAdminOnlyPrivilege = 0x100;

// -7 when the user that the web server named exists and may sign in, else -2.
int CheckServerNamedUser(const char* name) {
  PZANTUSER user = nullptr;
  int result = -2;
  if (ZANTUserGet(name, &user) == 0 && user != nullptr && !user->isDisabled) {
    result = ZANT::kAuthWebServer;
  }
  if (user != nullptr) ZANTUserFree(user);
  return result;
}

}  // namespace

// Every answer is about ZANT::CurrentRequest() at the time of the call.
WebMan::WebMan(bool /*fromCurrentRequest*/) {}

int WebMan::CheckAuthorized(int privilegeMask, _tag_cgi_position /*position*/,
                            bool /*allowExpired*/) {
  const ZANT::APIRequest* request = ZANT::CurrentRequest();
  if (request == nullptr) return -1;
  const int auth = request->GetAuthResult();
  const bool signedIn =
      request->GetLoginUID() >= 0 ||
      ((auth == ZANT::kAuthUser || auth == ZANT::kAuthAdmin) && !request->GetLoginUserName().empty());
  if (signedIn) {
    if (auth == ZANT::kAuthAdmin) return 2;
    return (privilegeMask & kAdminOnlyPrivilege) != 0 ? -3 : 1;
  }
  if (auth == ZANT::kAuthWebServer) {
    const char* name = std::getenv("USERNAME");
    if (name != nullptr && *name != '\0') return CheckServerNamedUser(name);
  }
  return -1;
}

std::string WebMan::GetZantToken(bool /*renew*/) {
  const ZANT::APIRequest* request = ZANT::CurrentRequest();
  return request != nullptr ? request->GetSessionToken() : std::string();
}
