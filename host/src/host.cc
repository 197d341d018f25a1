// One request from decoding to the framework's answer.
#include "zant_host/host.h"

#include <limits.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "zant/appliance.h"
#include "zant/json_util.h"
#include "zant/vlibc.h"
#include "zant_host/internal.h"
#include "zant_host/language.h"
#include "zant_host/param_guard.h"
#include "zant_host/privilege.h"
#include "zant_host/session.h"

namespace zant_host {

namespace {

// The fields of the request being handled as the client wrote them
// (percent-decoded, not JSON-decoded), while HandleRequest dispatches it.
thread_local const FormFields* gFields = nullptr;

class FieldsScope {
 public:
  explicit FieldsScope(const FormFields* fields) : previous_(gFields) { gFields = fields; }
  ~FieldsScope() { gFields = previous_; }
  FieldsScope(const FieldsScope&) = delete;
  FieldsScope& operator=(const FieldsScope&) = delete;

 private:
  const FormFields* previous_;
};

// The session's account must still exist, be enabled and keep its uid.
bool AccountStillValid(const Session& session, bool* admin) {
  ScopedRootIds root;
  PZANTUSER user = nullptr;
  bool valid = ZANTUserGet(session.user.c_str(), &user) == 0 && user != nullptr &&
               !user->isDisabled && user->uid == session.uid;
  if (valid) *admin = user->isAdmin != 0;
  if (user != nullptr) ZANTUserFree(user);
  return valid;
}

}  // namespace

bool ParamText(const ZANT::APIRequest& request, const std::string& name, std::string* text) {
  if (!request.HasParam(name)) return false;
  const Json::Value& value = request.GetParamRef(name, Json::Value());
  if (value.isString()) {
    *text = value.asString();
    return true;
  }
  if (const FormFields* fields = gFields) {
    for (const auto& field : *fields) {
      if (field.first == name) {
        *text = field.second;
        return true;
      }
    }
  }
  if (value.isNumeric() || value.isBool()) {
    *text = ZANT::JsonToString(value);
    return true;
  }
  return false;
}

namespace {

// The sign-in of the request: the session of the "id" cookie, else the
// user the web server named (REMOTE_USER, auth result -7, uid -1, exposed
// as the "USERNAME" environment variable), else nobody. Sets or clears
// "USERNAME" in the process environment. Answers the session's preferred
// language (empty when none).
std::string ApplySignIn(const CgiVars& vars, ZANT::APIRequest* request) {
  const std::string remoteUser = FindVar(vars, "REMOTE_USER");
  if (remoteUser.empty()) {
    unsetenv("USERNAME");
  } else {
    setenv("USERNAME", remoteUser.c_str(), 1);
  }

  const std::string id = request->GetCookie(kSessionCookie, "");
  if (!id.empty()) {
    SessionStore store;
    Session session;
    bool admin = false;
    if (store.Load(id, time(nullptr), &session)) {
      if (AccountStillValid(session, &admin)) {
        request->SetLogin(session.user, static_cast<int>(session.uid),
                          admin ? ZANT::kAuthAdmin : ZANT::kAuthUser);
        request->SetSessionToken(session.token);
        return session.lang;
      }
      store.Remove(id);
    }
  }
  if (!remoteUser.empty()) request->SetLogin("", -1, ZANT::kAuthWebServer);
  return std::string();
}

}  // namespace

std::string HandleRequest(const CgiVars& vars, const BodyReader& readBody, const Limits& limits) {
  ZANT::APIRequest request;
  ZANT::APIResponse response;
  std::string body;
  FormFields fields;
  int rc = ReadFormBody(vars, readBody, limits, &body);
  if (rc == 0) rc = DecodeRequest(vars, body, limits, &request, &fields);
  if (rc != 0) {
    unsetenv("USERNAME");
    response.SetError(rc);
    return ZANT::FormatFrameworkAnswer(response);
  }
  if (!ParamGuardAdmits(request)) {
    unsetenv("USERNAME");
    return ParamRefusedAnswer();
  }
  const std::string sessionLang = ApplySignIn(vars, &request);
  request.SetUILanguage(ChooseUILanguage(request.GetParamRef("lang", Json::Value()), sessionLang,
                                         FindVar(vars, "HTTP_ACCEPT_LANGUAGE")));
  FieldsScope scope(&fields);
  ZANT::APIRunner::Dispatch(&request, &response);
  return ZANT::FormatFrameworkAnswer(response);
}

void DefaultRootFromExecutable(const std::string& installedPath) {
  const char* root = getenv("ZANT_ROOT");
  if (root != nullptr && *root != '\0') return;
  char self[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
  if (n <= 0) return;
  const std::string exe(self, static_cast<size_t>(n));
  if (exe.size() <= installedPath.size() ||
      exe.compare(exe.size() - installedPath.size(), installedPath.size(), installedPath) != 0) {
    return;
  }
  setenv("ZANT_ROOT", exe.substr(0, exe.size() - installedPath.size()).c_str(), 1);
}

LoadReport InitHost() {
  LoadReport report = LoadModules(ZANT::RootPath(kModuleDir));
  RegisterBuiltinAPIs();
  UseParamRules(LoadParamRules());
  return report;
}

}  // namespace zant_host
