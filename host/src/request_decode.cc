#include "zant_host/request_decode.h"

#include <strings.h>

#include <cstring>
#include <memory>

#include "zant_host/json_text.h"

namespace zant_host {

namespace {

bool StartsWith(const std::string& text, const char* prefix) {
  return text.compare(0, std::strlen(prefix), prefix) == 0;
}

bool ParseNonNegative(const std::string& text, unsigned long long* value) {
  if (text.empty() || text.size() > 18) return false;
  unsigned long long v = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    v = v * 10 + static_cast<unsigned>(c - '0');
  }
  *value = v;
  return true;
}

// "version" as an int: a JSON integer, or a string of digits.
bool VersionOf(const Json::Value& value, int* version) {
  if (value.isInt()) {
    *version = value.asInt();
    return true;
  }
  if (value.isString()) {
    unsigned long long v = 0;
    if (!ParseNonNegative(value.asString(), &v) || v > 0x7fffffffULL) return false;
    *version = static_cast<int>(v);
    return true;
  }
  return false;
}

}  // namespace

bool IsServerVariable(const std::string& name) {
  static const char* const kPrefixes[] = {"HTTP_", "SERVER_", "REMOTE_", "REQUEST_",
                                          "CONTENT_", "SCRIPT_", "DOCUMENT_"};
  static const char* const kNames[] = {"QUERY_STRING", "GATEWAY_INTERFACE", "AUTH_TYPE",
                                       "REDIRECT_STATUS", "HTTPS", "HOST", "REWRITE_APP",
                                       "PATH_INFO", "PATH_TRANSLATED"};
  for (const char* prefix : kPrefixes) {
    if (StartsWith(name, prefix) && name.size() > std::strlen(prefix)) return true;
  }
  for (const char* exact : kNames) {
    if (name == exact) return true;
  }
  return false;
}

CgiVars ServerVarsFromEnviron(char** envp) {
  CgiVars vars;
  for (char** entry = envp; entry != nullptr && *entry != nullptr; ++entry) {
    const char* eq = std::strchr(*entry, '=');
    if (eq == nullptr) continue;
    std::string name(*entry, static_cast<size_t>(eq - *entry));
    if (IsServerVariable(name)) vars.emplace_back(std::move(name), std::string(eq + 1));
  }
  return vars;
}

std::string FindVar(const CgiVars& vars, const std::string& name, const std::string& def) {
  for (const auto& var : vars) {
    if (var.first == name) return var.second;
  }
  return def;
}

Json::Value ValueFromText(const std::string& text) {
  if (!IsJsonText(text)) return Json::Value(text);
  // Made once per thread: building a reader costs more than parsing a
  // parameter, and a reader keeps nothing from one parse to the next.
  thread_local std::unique_ptr<Json::CharReader> reader([] {
    Json::CharReaderBuilder builder;
    builder["collectComments"] = false;
    builder["allowComments"] = false;
    builder["failIfExtra"] = true;
    builder["allowSpecialFloats"] = false;
    builder["stackLimit"] = 1000;
    return builder.newCharReader();
  }());
  Json::Value value;
  std::string errors;
  if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
    return Json::Value(text);
  }
  return value;
}

int ParseForm(const std::string& text, size_t maxFields, FormFields* fields) {
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('&', start);
    if (end == std::string::npos) end = text.size();
    const std::string field = text.substr(start, end - start);
    start = end + 1;
    if (field.empty()) continue;
    if (fields->size() >= maxFields) return ZANT::kErrRequestTooLarge;
    size_t eq = field.find('=');
    std::string name;
    std::string value;
    if (!ZANT::WebAPIUtil::URLDecode(field.substr(0, eq), name, true)) return ZANT::kErrBadParameter;
    if (eq != std::string::npos &&
        !ZANT::WebAPIUtil::URLDecode(field.substr(eq + 1), value, true)) {
      return ZANT::kErrBadParameter;
    }
    fields->emplace_back(std::move(name), std::move(value));
  }
  return 0;
}

bool HasFormBody(const CgiVars& vars) {
  if (strcasecmp(FindVar(vars, "REQUEST_METHOD").c_str(), "POST") != 0) return false;
  std::string type = FindVar(vars, "CONTENT_TYPE");
  type = type.substr(0, type.find(';'));
  while (!type.empty() && (type.back() == ' ' || type.back() == '\t')) type.pop_back();
  size_t lead = type.find_first_not_of(" \t");
  if (lead == std::string::npos) return false;
  return strcasecmp(type.c_str() + lead, "application/x-www-form-urlencoded") == 0;
}

int ReadFormBody(const CgiVars& vars, const BodyReader& read, const Limits& limits,
                 std::string* body) {
  body->clear();
  if (!HasFormBody(vars)) return 0;
  const std::string lengthText = FindVar(vars, "CONTENT_LENGTH");
  bool sized = !lengthText.empty();
  unsigned long long length = 0;
  if (sized && !ParseNonNegative(lengthText, &length)) {
    // Eighteen digits and more are too large anyway.
    if (lengthText.size() > 18 && lengthText.find_first_not_of("0123456789") == std::string::npos) {
      return ZANT::kErrRequestTooLarge;
    }
    return ZANT::kErrBadParameter;
  }
  if (sized && length > limits.maxBody) return ZANT::kErrRequestTooLarge;
  const size_t want = sized ? static_cast<size_t>(length) : limits.maxBody + 1;
  body->resize(want);
  size_t got = 0;
  while (got < want) {
    long n = read(&(*body)[got], want - got);
    if (n < 0) return ZANT::kErrBadParameter;
    if (n == 0) break;
    got += static_cast<size_t>(n);
  }
  body->resize(got);
  if (got > limits.maxBody) return ZANT::kErrRequestTooLarge;
  if (sized && got < want) return ZANT::kErrBadParameter;
  return 0;
}

int DecodeRequest(const CgiVars& vars, const std::string& body, const Limits& limits,
                  ZANT::APIRequest* request, FormFields* decoded) {
  for (const auto& var : vars) {
    if (!request->HasEnv(var.first)) request->SetServerVar(var.first, var.second);
  }

  const std::string query = FindVar(vars, "QUERY_STRING");
  const std::string cookies = FindVar(vars, "HTTP_COOKIE");
  if (query.size() > limits.maxQuery || body.size() > limits.maxBody ||
      cookies.size() > limits.maxCookie) {
    return ZANT::kErrRequestTooLarge;
  }
  request->SetCookieHeader(cookies);

  FormFields fields;
  int rc = ParseForm(query, limits.maxFields, &fields);
  if (rc == 0) rc = ParseForm(body, limits.maxFields, &fields);
  if (rc != 0) return rc;
  if (decoded != nullptr) *decoded = fields;

  // "api", "version" and "method" choose the handler; they are kept apart
  // from the parameters in a second object.
  Json::Value selection(Json::objectValue);
  Json::Value params(Json::objectValue);
  for (const auto& field : fields) {
    const bool selector = field.first == "api" || field.first == "version" || field.first == "method";
    Json::Value& target = selector ? selection : params;
    if (!target.isMember(field.first)) target[field.first] = ValueFromText(field.second);
  }
  request->SetParams(params);

  const Json::Value& api = selection["api"];
  const Json::Value& method = selection["method"];
  int version = 0;
  if (!api.isString() || !method.isString() || !VersionOf(selection["version"], &version)) {
    return ZANT::kErrBadParameter;
  }
  request->SetAPI(api.asString(), version, method.asString());
  return 0;
}

}  // namespace zant_host
