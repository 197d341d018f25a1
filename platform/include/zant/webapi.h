// The web-API framework as a module sees it: request and response objects,
// the in-process runner, parameter checking, the method tables a module
// exports, and the query/HTML encoders.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <json/json.h>

namespace ZANT {

class APIRequest;
class APIResponse;

// Error codes the framework itself answers with (modules add their own).
enum FrameworkError {
  kErrUnknown = 100,
  kErrBadParameter = 101,
  kErrNoSuchAPI = 102,
  kErrNoSuchMethod = 103,
  kErrVersionNotSupported = 104,
  kErrPermissionDenied = 105,
  kErrSessionTimeout = 106,
  kErrModuleLoadFailed = 107,
  kErrRequestTooLarge = 108,
};

// Authentication results that APIRequest::GetAuthResult() reports.
enum AuthResult {
  kAuthNone = -1,        // nobody signed in
  kAuthWebServer = -7,   // the web server in front named the user ("USERNAME")
  kAuthUser = 1,         // a signed-in user
  kAuthAdmin = 2,        // a signed-in administrator
};

// A checked parameter (see APIRequest::GetAndCheckString).
template <typename T>
class APIParameter {
 public:
  APIParameter() = default;
  APIParameter(T value, bool isSet, bool isInvalid)
      : value_(std::move(value)), isSet_(isSet), isInvalid_(isInvalid) {}
  bool IsSet() const { return isSet_; }
  bool IsInvalid() const { return isInvalid_; }
  const T& Get() const { return value_; }

 private:
  T value_{};
  bool isSet_ = false;
  bool isInvalid_ = false;
};

// Necessity of a checked parameter.
enum ParamNecessity {
  kParamRequired = 0,   // absent: invalid
  kParamOptional = 1,   // absent: valid, the type's empty value
};

class APIRequest {
 public:
  APIRequest();

  // --- building (the host, the runner and tests) ---
  void SetAPI(const std::string& api, int version, const std::string& method);
  void SetParam(const std::string& name, const Json::Value& value);
  void SetParams(const Json::Value& object);  // every member of an object
  void SetCookie(const std::string& name, const std::string& value);
  // Parses a "Cookie:" header value ("a=1; b=2"); malformed pairs are skipped.
  void SetCookieHeader(const std::string& header);
  // A CGI server variable ("HTTP_HOST", "REQUEST_URI", ...).
  void SetServerVar(const std::string& name, const std::string& value);
  void SetLogin(const std::string& user, int uid, int authResult);
  void SetSessionToken(const std::string& token);
  void SetUILanguage(const std::string& lang);

  // --- what handlers read ---
  const std::string& GetAPI() const { return api_; }
  int GetVersion() const { return version_; }
  const std::string& GetMethod() const { return method_; }
  const Json::Value& GetParams() const { return params_; }

  // The parameter's value, or `def` when absent. The reference stays valid
  // while the request (or, for the default, the caller's value) lives.
  const Json::Value& GetParamRef(const std::string& name, const Json::Value& def) const;
  Json::Value GetParam(const std::string& name, const Json::Value& def) const;
  bool HasParam(const std::string& name) const;
  // A parameter that must be a JSON string. Absent: invalid when required,
  // else valid and empty. Present but not a string, or rejected by the
  // validator: invalid.
  APIParameter<std::string> GetAndCheckString(const std::string& name, int necessity,
                                              bool (*validator)(const std::string&) = nullptr) const;

  bool HasCookie(const std::string& name) const;
  std::string GetCookie(const std::string& name, const std::string& def) const;
  const std::map<std::string, std::string>& GetCookies() const { return cookies_; }

  const std::string& GetLoginUserName() const { return loginUser_; }
  int GetLoginUID() const { return loginUid_; }
  int GetAuthResult() const { return authResult_; }
  const std::string& GetSessionToken() const { return sessionToken_; }
  const std::string& GetUILanguage() const { return uiLanguage_; }

  // Server variables, after any InitEnv overrides.
  bool HasEnv(const std::string& name) const;
  Json::Value GetEnv(const std::string& name, const Json::Value& def) const;
  // Starts over from the server's own variables, then lets each member of
  // `overrides` (strings) replace the variable of the same name for every
  // later read, the URL parts included. An empty object restores the server's view.
  void InitEnv(const Json::Value& overrides);

  // URL parts derived from the server variables:
  //  scheme: "https" when HTTPS is "on"/"1" or REQUEST_SCHEME is "https", else "http";
  //  host:   HTTP_HOST without its port ("[v6]" kept bracketed), else SERVER_NAME;
  //  port:   HTTP_HOST's port, else SERVER_PORT;
  //  path:   REQUEST_URI up to "?" (as sent, not decoded).
  // Each answers `def` when its source is missing or empty.
  std::string GetURLProto(const std::string& def) const;
  std::string GetURLHost(const std::string& def) const;
  int GetURLPort(int def) const;
  std::string GetURLPath(const std::string& def) const;

 private:
  std::string api_;
  int version_ = 0;
  std::string method_;
  Json::Value params_{Json::objectValue};
  std::map<std::string, std::string> cookies_;
  std::map<std::string, std::string> serverVars_;
  std::map<std::string, std::string> env_;  // serverVars_ with overrides applied
  std::string loginUser_;
  int loginUid_ = -1;
  int authResult_ = kAuthNone;
  std::string sessionToken_;
  std::string uiLanguage_ = "enu";
};

class APIResponse {
 public:
  APIResponse() = default;

  void SetSuccess(const Json::Value& data = Json::Value());
  void SetSuccess(Json::Value&& data);
  void SetError(int code, const Json::Value& data = Json::Value());
  void SetHeader(const std::string& name, const std::string& value);
  void SetEnableOutput(bool enable) { enableOutput_ = enable; }
  bool IsEnableOutput() const { return enableOutput_; }
  // Answers `result` as the whole result object, exactly as given; ToResult
  // returns it unchanged. For in-memory fakes of other web APIs whose results
  // SetSuccess/SetError cannot shape (a success without "data", a failure
  // without "error").
  void SetRawResult(const Json::Value& result) {
    raw_ = result;
    hasRaw_ = true;
    answered_ = true;
    success_ = result.isObject() && result["success"] == Json::Value(true);
  }

  // --- what the framework reads back ---
  bool IsSuccess() const { return answered_ && success_; }
  int GetErrorCode() const { return errorCode_; }
  const Json::Value& GetData() const { return data_; }
  const std::vector<std::pair<std::string, std::string>>& GetHeaders() const { return headers_; }
  std::string GetHeader(const std::string& name) const;  // last value, or empty
  // {"success":true,"data":D} or {"success":false,"error":{"code":N}} (with
  // "errors": data when the error carried non-null data). A handler that set
  // no answer at all is reported as error 100. After SetRawResult: that
  // object, unchanged.
  Json::Value ToResult() const;
  // The same object, made by moving this response's data out of it (the
  // response answers null data afterwards): for callers done with it.
  Json::Value TakeResult();

 private:
  bool answered_ = false;
  bool success_ = false;
  int errorCode_ = 0;
  Json::Value data_;
  std::vector<std::pair<std::string, std::string>> headers_;
  bool enableOutput_ = true;
  bool hasRaw_ = false;
  Json::Value raw_;
};

// The CGI text the framework sends for a response whose output is still on:
// a 302 with "Location" for a success that set that header, else the JSON
// answer with "Content-Type: application/json; charset=\"UTF-8\"". Header
// lines end in CR LF; a blank line separates the body.
std::string FormatFrameworkAnswer(const APIResponse& response);

typedef void (*APIHandler)(APIRequest*, APIResponse*);
typedef int (*APICheck)(APIRequest*);

// Runs web APIs of this process by (api, version, method).
class APIRunner {
 public:
  // Calls the handler registered for api/version/method with `params` as
  // the request's parameters and `user` as its signed-in user, then fills
  // `result` with the response's result object. Unknown API, method or version
  // and a check that does not answer 1 give {"success":false,"error":{"code":N}}
  // with the FrameworkError codes. Returns true when a handler ran.
  static bool Exec(Json::Value& result, const char* api, int version, const char* method,
                   const Json::Value& params, const char* user);

  // Registry shared by the host and tests. A later registration of the same
  // (api, version, method) replaces the earlier one.
  static void Register(const std::string& api, int version, const std::string& method,
                       APIHandler handler, APICheck check = nullptr);
  static void Unregister(const std::string& api, int version, const std::string& method);
  static void Clear();

  enum Lookup { kFound, kNoAPI, kNoMethod, kNoVersion };
  static Lookup Find(const std::string& api, int version, const std::string& method,
                     APIHandler* handler, APICheck* check);
  // Runs a request through the registry: lookup, check, handler. Answers the
  // framework's error on the response when no handler may run.
  static void Dispatch(APIRequest* request, APIResponse* response);
};

// The request being dispatched right now (innermost in-process call), for
// platform services that are not handed the request (WebMan). Null outside
// a dispatch.
APIRequest* CurrentRequest();
// Makes `request` current until the returned guard's destructor.
class CurrentRequestScope {
 public:
  explicit CurrentRequestScope(APIRequest* request);
  ~CurrentRequestScope();
  CurrentRequestScope(const CurrentRequestScope&) = delete;
  CurrentRequestScope& operator=(const CurrentRequestScope&) = delete;

 private:
  APIRequest* previous_;
};

namespace WebAPIUtil {
// Percent-encodes a query value: A-Z a-z 0-9 and "-_.~" stay, every other
// byte becomes %XX (upper-case hex).
std::string URLEncode(const std::string& text);
// Decodes %XX and (when plusAsSpace) "+"; false on a malformed escape.
bool URLDecode(const std::string& text, std::string& out, bool plusAsSpace);
// HTML-escapes & < > " and ' as entities; line feeds pass unchanged unless
// `escapeNewline` is true, which writes them as "&#10;".
std::string EncodeHtml(const std::string& text, bool escapeNewline);
}  // namespace WebAPIUtil

}  // namespace ZANT

// Rows of the tables a module exports (GetAPITable / GetAPICheckTable).
extern "C" {
typedef struct ZANTAPITableEntry {
  const char* api;
  int32_t version;
  const char* method;
  ZANT::APIHandler handler;
} ZANTAPITableEntry;

typedef struct ZANTAPICheckEntry {
  const char* api;
  int32_t version;
  const char* method;
  ZANT::APICheck check;
  uint32_t reserved1;
  uint32_t reserved2;
} ZANTAPICheckEntry;

typedef ZANTAPITableEntry* (*ZANTGetAPITableFn)(void);
typedef ZANTAPICheckEntry* (*ZANTGetAPICheckTableFn)(void);
}
