#include "api_support.h"
#include "services_api.h"

#include <dlfcn.h>
#include <syslog.h>

#include <cctype>
#include <cstdio>

#include "zant/qrt.h"

namespace plyth_services {

namespace {
const char kDefaultLanguage[] = "enu";
}  // namespace


bool TextParam(const ZANT::APIRequest& request, const char* name, bool required, std::string* value) {
  if (!request.HasParam(name)) {
    value->clear();
    return !required;
  }
  const Json::Value& param = request.GetParamRef(name, Json::Value());
  if (param.isString()) {
    *value = param.asString();
  } else if (param.isInt64()) {
    *value = std::to_string(param.asInt64());
  } else if (param.isUInt64()) {
    *value = std::to_string(param.asUInt64());
  } else if (param.isBool()) {
    *value = param.asBool() ? "true" : "false";
  } else {
    return false;
  }
  return true;
}

bool IntParam(const ZANT::APIRequest& request, const char* name, int64_t fallback, int64_t min, int64_t max,
              int64_t* value) {
  if (!request.HasParam(name)) {
    *value = fallback;
    return true;
  }
  const Json::Value& param = request.GetParamRef(name, Json::Value());
  if (param.isInt64()) {
    *value = param.asInt64();
  } else if (param.isString() && !param.asString().empty() && param.asString().size() <= 18 &&
             param.asString().find_first_not_of("0123456789") == std::string::npos) {
    *value = std::stoll(param.asString());
  } else {
    return false;
  }
  return *value >= min && *value <= max;
}

Store* OpenStoreOrLog() {
  std::string error;
  Store* store = Store::Shared(&error);
  if (!store) syslog(LOG_ERR, "plyth-services: cannot open the link store: %s", error.c_str());
  return store;
}

void* LibraryAccessor(const char* relative, const char* name, const char* what) {
  Dl_info self;
  void* accessor = nullptr;
  if (dladdr(reinterpret_cast<void*>(&LibraryAccessor), &self) != 0 && self.dli_fname != nullptr) {
    std::string path = self.dli_fname;
    path = path.substr(0, path.rfind('/') + 1) + relative;
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library != nullptr) accessor = dlsym(library, name);
  }
  if (accessor == nullptr) {
    // What needs the library then fails until the program restarts: say why, once.
    const char* why = dlerror();
    syslog(LOG_ERR, "plyth-services: no %s: %s", what, why != nullptr ? why : relative);
  }
  return accessor;
}

void WriteScript(const std::string& body) {
  static const char kHead[] = "Content-Type: application/javascript; charset=\"UTF-8\"\r\n\r\n";
  fwrite(kHead, 1, sizeof(kHead) - 1, stdout);
  fwrite(body.data(), 1, body.size(), stdout);
  fflush(stdout);
}

int CheckAnyone(ZANT::APIRequest*) { return 1; }

int CheckAdmin(ZANT::APIRequest* request) {
  if (request->GetAuthResult() == ZANT::kAuthAdmin) return 1;
  return request->GetLoginUserName() == "admin" ? 1 : 0;
}

// A three-letter language code: "lang", else the request's UI language,
// else the default. Anything else could walk out of the texts directory.
std::string LanguageOf(const ZANT::APIRequest& request) {
  auto valid = [](const std::string& code) {
    if (code.size() != 3) return false;
    for (char c : code) {
      if (!islower(static_cast<unsigned char>(c))) return false;
    }
    return true;
  };
  const Json::Value& lang = request.GetParamRef("lang", Json::Value());
  if (lang.isString() && valid(lang.asString())) return lang.asString();
  if (valid(request.GetUILanguage())) return request.GetUILanguage();
  return kDefaultLanguage;
}

// The texts of `lang` under `directory`, or the default language's when
// that language has none.
Json::Value TextsOf(const std::string& directory, const std::string& lang) {
  Json::Value texts = ZANT::QRT::LocalizedStringParser::ParseTexts(directory + lang);
  if ((!texts.isObject() || texts.empty()) && lang != kDefaultLanguage) {
    texts = ZANT::QRT::LocalizedStringParser::ParseTexts(directory + kDefaultLanguage);
  }
  return texts.isObject() ? texts : Json::Value(Json::objectValue);
}

}  // namespace plyth_services
