// The request object: parameters, cookies, server variables and the URL
// parts derived from them, and the sign-in facts the host fills in.
#include <cstdlib>

#include "zant/webapi.h"

namespace ZANT {

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::string Trim(const std::string& text) {
  size_t begin = 0;
  size_t end = text.size();
  while (begin < end && IsBlank(text[begin])) ++begin;
  while (end > begin && IsBlank(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

// Cookie names are tokens: no controls, blanks or separators. Values are
// taken as sent (binary bytes included).
bool IsCookieName(const std::string& name) {
  if (name.empty()) return false;
  for (unsigned char c : name) {
    if (c <= 0x20 || c == 0x7f) return false;
    switch (c) {
      case '"': case ',': case ';': case '\\': case '=':
        return false;
      default:
        break;
    }
  }
  return true;
}

// "0".."65535" written in decimal digits only; -1 otherwise.
int ParsePort(const std::string& text) {
  if (text.empty() || text.size() > 5) return -1;
  int port = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return -1;
    port = port * 10 + (c - '0');
  }
  return port <= 65535 ? port : -1;
}

// Splits a Host header into host and port text. "[v6]:port" keeps the
// brackets on the host; a bare IPv6 address (more than one ":") has no port.
void SplitHostHeader(const std::string& header, std::string& host, std::string& port) {
  host.clear();
  port.clear();
  if (!header.empty() && header[0] == '[') {
    size_t close = header.find(']');
    if (close == std::string::npos) {
      host = header;
      return;
    }
    host = header.substr(0, close + 1);
    if (close + 1 < header.size() && header[close + 1] == ':') port = header.substr(close + 2);
    return;
  }
  size_t colon = header.find(':');
  if (colon == std::string::npos || header.find(':', colon + 1) != std::string::npos) {
    host = header;
    return;
  }
  host = header.substr(0, colon);
  port = header.substr(colon + 1);
}

}  // namespace

APIRequest::APIRequest() = default;

void APIRequest::SetAPI(const std::string& api, int version, const std::string& method) {
  api_ = api;
  version_ = version;
  method_ = method;
}

void APIRequest::SetParam(const std::string& name, const Json::Value& value) {
  params_[name] = value;
}

void APIRequest::SetParams(const Json::Value& object) {
  if (!object.isObject()) return;
  for (const std::string& name : object.getMemberNames()) params_[name] = object[name];
}

void APIRequest::SetCookie(const std::string& name, const std::string& value) {
  cookies_[name] = value;
}

void APIRequest::SetCookieHeader(const std::string& header) {
  // Browsers send the most specific cookie of a name first: that one counts.
  std::map<std::string, std::string> parsed;
  size_t start = 0;
  while (start <= header.size()) {
    size_t end = header.find(';', start);
    if (end == std::string::npos) end = header.size();
    const std::string pair = header.substr(start, end - start);
    start = end + 1;
    size_t eq = pair.find('=');
    if (eq == std::string::npos) continue;
    std::string name = Trim(pair.substr(0, eq));
    if (!IsCookieName(name)) continue;
    parsed.emplace(std::move(name), Trim(pair.substr(eq + 1)));
  }
  for (auto& entry : parsed) cookies_[entry.first] = entry.second;
}

void APIRequest::SetServerVar(const std::string& name, const std::string& value) {
  serverVars_[name] = value;
  env_[name] = value;
}

void APIRequest::SetLogin(const std::string& user, int uid, int authResult) {
  loginUser_ = user;
  loginUid_ = uid;
  authResult_ = authResult;
}

void APIRequest::SetSessionToken(const std::string& token) { sessionToken_ = token; }

void APIRequest::SetUILanguage(const std::string& lang) { uiLanguage_ = lang; }

const Json::Value& APIRequest::GetParamRef(const std::string& name, const Json::Value& def) const {
  const Json::Value* found = params_.find(name.data(), name.data() + name.size());
  return found != nullptr ? *found : def;
}

Json::Value APIRequest::GetParam(const std::string& name, const Json::Value& def) const {
  return GetParamRef(name, def);
}

bool APIRequest::HasParam(const std::string& name) const {
  return params_.find(name.data(), name.data() + name.size()) != nullptr;
}

APIParameter<std::string> APIRequest::GetAndCheckString(
    const std::string& name, int necessity, bool (*validator)(const std::string&)) const {
  const Json::Value* found = params_.find(name.data(), name.data() + name.size());
  if (found == nullptr) {
    // Any necessity other than "optional" is treated as required.
    return APIParameter<std::string>(std::string(), false, necessity != kParamOptional);
  }
  if (!found->isString()) return APIParameter<std::string>(std::string(), true, true);
  std::string value = found->asString();
  bool invalid = validator != nullptr && !validator(value);
  return APIParameter<std::string>(std::move(value), true, invalid);
}

bool APIRequest::HasCookie(const std::string& name) const { return cookies_.count(name) != 0; }

std::string APIRequest::GetCookie(const std::string& name, const std::string& def) const {
  auto it = cookies_.find(name);
  return it != cookies_.end() ? it->second : def;
}

bool APIRequest::HasEnv(const std::string& name) const { return env_.count(name) != 0; }

Json::Value APIRequest::GetEnv(const std::string& name, const Json::Value& def) const {
  auto it = env_.find(name);
  return it != env_.end() ? Json::Value(it->second) : def;
}

void APIRequest::InitEnv(const Json::Value& overrides) {
  env_ = serverVars_;
  if (!overrides.isObject()) return;
  for (const std::string& name : overrides.getMemberNames()) {
    const Json::Value& value = overrides[name];
    if (value.isString()) env_[name] = value.asString();
  }
}

namespace {

std::string Lookup(const std::map<std::string, std::string>& env, const char* name) {
  auto it = env.find(name);
  return it != env.end() ? it->second : std::string();
}

std::string Lower(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

}  // namespace

std::string APIRequest::GetURLProto(const std::string& def) const {
  const std::string https = Lower(Lookup(env_, "HTTPS"));
  const std::string scheme = Lower(Lookup(env_, "REQUEST_SCHEME"));
  if (https.empty() && scheme.empty()) return def;
  if (https == "on" || https == "1" || scheme == "https") return "https";
  return "http";
}

std::string APIRequest::GetURLHost(const std::string& def) const {
  std::string host;
  std::string port;
  SplitHostHeader(Lookup(env_, "HTTP_HOST"), host, port);
  if (host.empty()) host = Lookup(env_, "SERVER_NAME");
  return host.empty() ? def : host;
}

int APIRequest::GetURLPort(int def) const {
  std::string host;
  std::string port;
  SplitHostHeader(Lookup(env_, "HTTP_HOST"), host, port);
  int value = ParsePort(port);
  if (value < 0) value = ParsePort(Lookup(env_, "SERVER_PORT"));
  return value < 0 ? def : value;
}

std::string APIRequest::GetURLPath(const std::string& def) const {
  const std::string uri = Lookup(env_, "REQUEST_URI");
  const std::string path = uri.substr(0, uri.find('?'));
  return path.empty() ? def : path;
}

}  // namespace ZANT
