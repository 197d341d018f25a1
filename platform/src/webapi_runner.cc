// The in-process API runner: a registry of handlers keyed by
// (api, version, method), dispatch through it, and the current request.
#include <limits>
#include <mutex>
#include <tuple>

#include "zant/vlibc.h"
#include "zant/webapi.h"

namespace ZANT {

namespace {

struct Entry {
  APIHandler handler = nullptr;
  APICheck check = nullptr;
};

using Key = std::tuple<std::string, int, std::string>;  // api, version, method

std::mutex& RegistryMutex() {
  static std::mutex mutex;
  return mutex;
}

std::map<Key, Entry>& Registry() {
  static std::map<Key, Entry> registry;
  return registry;
}

thread_local APIRequest* tCurrent = nullptr;

// Maps the runner's `user` argument to the sign-in facts of the nested request.
void SetNestedLogin(APIRequest& request, const std::string& user) {
  if (user.empty() || user == "anonymous") {
    request.SetLogin(user, -1, kAuthNone);
    return;
  }
  int uid = -1;
  int auth = kAuthUser;
  PZANTUSER record = nullptr;
  if (ZANTUserGet(user.c_str(), &record) == 0 && record != nullptr) {
    uid = static_cast<int>(record->uid);
    if (record->isAdmin) auth = kAuthAdmin;
  }
  if (record != nullptr) ZANTUserFree(record);
  request.SetLogin(user, uid, auth);
}

}  // namespace

APIRequest* CurrentRequest() { return tCurrent; }

CurrentRequestScope::CurrentRequestScope(APIRequest* request) : previous_(tCurrent) {
  tCurrent = request;
}

CurrentRequestScope::~CurrentRequestScope() { tCurrent = previous_; }

void APIRunner::Register(const std::string& api, int version, const std::string& method,
                         APIHandler handler, APICheck check) {
  std::lock_guard<std::mutex> lock(RegistryMutex());
  Entry& entry = Registry()[Key(api, version, method)];
  entry.handler = handler;
  entry.check = check;
}

void APIRunner::Unregister(const std::string& api, int version, const std::string& method) {
  std::lock_guard<std::mutex> lock(RegistryMutex());
  Registry().erase(Key(api, version, method));
}

void APIRunner::Clear() {
  std::lock_guard<std::mutex> lock(RegistryMutex());
  Registry().clear();
}

// An API that exists but lacks the version answers "version not supported"
// before the method is looked at, so a client learns to change the version first.
APIRunner::Lookup APIRunner::Find(const std::string& api, int version, const std::string& method,
                                  APIHandler* handler, APICheck* check) {
  std::lock_guard<std::mutex> lock(RegistryMutex());
  const std::map<Key, Entry>& registry = Registry();
  auto exact = registry.find(Key(api, version, method));
  if (exact != registry.end()) {
    if (handler != nullptr) *handler = exact->second.handler;
    if (check != nullptr) *check = exact->second.check;
    return kFound;
  }
  bool apiKnown = false;
  bool versionKnown = false;
  for (auto it = registry.lower_bound(Key(api, std::numeric_limits<int>::min(), std::string()));
       it != registry.end() && std::get<0>(it->first) == api; ++it) {
    apiKnown = true;
    if (std::get<1>(it->first) == version) versionKnown = true;
  }
  if (!apiKnown) return kNoAPI;
  return versionKnown ? kNoMethod : kNoVersion;
}

namespace {

// Dispatch that also tells whether the handler ran.
bool RunThroughRegistry(APIRequest* request, APIResponse* response) {
  APIHandler handler = nullptr;
  APICheck check = nullptr;
  switch (APIRunner::Find(request->GetAPI(), request->GetVersion(), request->GetMethod(), &handler,
                          &check)) {
    case APIRunner::kNoAPI:
      response->SetError(kErrNoSuchAPI);
      return false;
    case APIRunner::kNoMethod:
      response->SetError(kErrNoSuchMethod);
      return false;
    case APIRunner::kNoVersion:
      response->SetError(kErrVersionNotSupported);
      return false;
    case APIRunner::kFound:
      break;
  }
  if (handler == nullptr) {
    response->SetError(kErrNoSuchMethod);
    return false;
  }
  CurrentRequestScope scope(request);
  if (check != nullptr && check(request) != 1) {
    response->SetError(kErrPermissionDenied);
    return false;
  }
  handler(request, response);
  return true;
}

}  // namespace

void APIRunner::Dispatch(APIRequest* request, APIResponse* response) {
  RunThroughRegistry(request, response);
}

bool APIRunner::Exec(Json::Value& result, const char* api, int version, const char* method,
                     const Json::Value& params, const char* user) {
  APIRequest request;
  request.SetAPI(api != nullptr ? api : "", version, method != nullptr ? method : "");
  request.SetParams(params);
  SetNestedLogin(request, user != nullptr ? user : "");
  if (APIRequest* outer = CurrentRequest()) request.SetUILanguage(outer->GetUILanguage());

  APIResponse response;
  bool ran = RunThroughRegistry(&request, &response);
  result = response.TakeResult();
  return ran;
}

}  // namespace ZANT
