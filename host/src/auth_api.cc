// The framework's own web API "ZANT.Core.Auth" version 1: sign-in
// ("login") and sign-out ("logout") over the appliance's user database.
#include <ctime>

#include "zant/userdb.h"
#include "zant/webapi.h"
#include "zant_host/host.h"
#include "zant_host/internal.h"
#include "zant_host/language.h"
#include "zant_host/privilege.h"
#include "zant_host/session.h"
#include "zant_host/sign_in_throttle.h"

namespace zant_host {

namespace {

const char kAuthAPI[] = "ZANT.Core.Auth";

int Allow(ZANT::APIRequest*) { return 1; }

bool IsHttps(const ZANT::APIRequest& request) { return request.GetURLProto("http") == "https"; }

// Unknown accounts count like known ones, so that the throttle does not
// tell which names exist.
bool IsRefusal(ZANT::UserDB::Status status) {
  return status == ZANT::UserDB::Status::kNoSuchUser || status == ZANT::UserDB::Status::kWrongPassword ||
         status == ZANT::UserDB::Status::kDisabled || status == ZANT::UserDB::Status::kBadParameter;
}

// False, with the answer set, when the throttle holds or cannot be asked.
// The throttle's file lies beside the sessions: when it cannot be used,
// no session could be written either.
bool ThrottleAllows(ThrottleVerdict verdict, const std::string& account, const std::string& from,
                    ZANT::APIResponse* response) {
  switch (verdict) {
    case ThrottleVerdict::kAllowed:
      return true;
    case ThrottleVerdict::kThrottled:
      HostLog(false, "sign-in of %s from %s refused: too many attempts", account.c_str(), from.c_str());
      response->SetError(kErrTooManySignIns);
      return false;
    case ThrottleVerdict::kUnavailable:
      break;
  }
  HostLog(true, "cannot use the sign-in throttle %s", SignInThrottle().File().c_str());
  response->SetError(ZANT::kErrUnknown);
  return false;
}

void LoginFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  std::string account;
  std::string passwd;
  if (!ParamText(*request, "account", &account) || account.empty() ||
      !ParamText(*request, "passwd", &passwd)) {
    response->SetError(ZANT::kErrBadParameter);
    return;
  }
  const std::string from = request->GetEnv("REMOTE_ADDR", Json::Value("")).asString();
  const int64_t now = time(nullptr);
  const SignInThrottle throttle;
  if (!ThrottleAllows(throttle.Check(account, from, now), account, from, response)) return;
  ZANT::UserDB::User user;
  ZANT::UserDB::Status status;
  {
    ScopedRootIds root;
    status = ZANT::UserDB::Authenticate(account, passwd, &user);
  }
  if (status != ZANT::UserDB::Status::kOk) {
    HostLog(false, "sign-in of %s from %s refused: %s", account.c_str(), from.c_str(),
            ZANT::UserDB::StatusText(status));
    if (!IsRefusal(status)) {
      response->SetError(ZANT::kErrUnknown);
      return;
    }
    // Counted again and recorded in one transaction: of a burst that all
    // passed the check above, those past the limit are told so.
    if (ThrottleAllows(throttle.Record(account, from, now), account, from, response)) {
      response->SetError(kErrSignInFailed);
    }
    return;
  }

  std::string lang;
  if (ParamText(*request, "lang", &lang)) lang = LanguageFromCode(lang);
  SessionStore store;
  store.Sweep(now);
  Session session;
  if (!store.Create(user.name, user.uid, user.admin, lang, now, &session)) {
    HostLog(true, "cannot write a session for %s under %s", user.name.c_str(),
            store.FileOf("").c_str());
    response->SetError(ZANT::kErrUnknown);
    return;
  }
  HostLog(false, "sign-in of %s from %s", user.name.c_str(), from.c_str());
  Json::Value data(Json::objectValue);
  data["account"] = user.name;
  data["is_admin"] = user.admin;
  data["ZantToken"] = session.token;
  response->SetHeader("Set-Cookie", SessionCookieValue(session.id, IsHttps(*request)));
  response->SetSuccess(data);
}

// Signing out ends the session of the request; it needs the session's token
// so that another site cannot sign a visitor out.
void LogoutFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  if (!request->GetSessionToken().empty()) {
    if (!RequestCarriesSessionToken(*request)) {
      response->SetError(ZANT::kErrPermissionDenied);
      return;
    }
    SessionStore().Remove(request->GetCookie(kSessionCookie, ""));
    HostLog(false, "sign-out of %s", request->GetLoginUserName().c_str());
  }
  response->SetHeader("Set-Cookie", ClearedSessionCookieValue(IsHttps(*request)));
  response->SetSuccess();
}

}  // namespace

void RegisterBuiltinAPIs() {
  ZANT::APIRunner::Register(kAuthAPI, 1, "login", LoginFunc, Allow);
  ZANT::APIRunner::Register(kAuthAPI, 1, "logout", LogoutFunc, Allow);
}

}  // namespace zant_host
