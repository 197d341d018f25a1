// Shared with the product's other web-API modules: the in-process client of
// the link service, the privilege switch around it, the record conversions
// and the request parsers.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include <json/json.h>

#include "zant/tarnova.h"

// Source path that this unit's log lines carry.
#define PLYTH_UTILS_SOURCE "server/ui-web/src/plyth/common/plyth_utils"

// Effective ids saved by ENTERCriticalSection for LEAVECriticalSection.
struct PlythSavedIds {
  uid_t uid;
  gid_t gid;
};

// Raises the effective uid and gid to root, logging each set call; a
// failure is logged and left in errno, never fatal.
void ENTERCriticalSection(PlythSavedIds& saved, const char* source, int line);
// Puts back the ids saved by ENTERCriticalSection.
void LEAVECriticalSection(const PlythSavedIds& saved, const char* source, int line);

// Holds root ids for one scope.
class PlythCriticalSection {
 public:
  PlythCriticalSection(const char* source, int line) : source_(source), line_(line) {
    ENTERCriticalSection(saved_, source_, line_);
  }
  ~PlythCriticalSection() { LEAVECriticalSection(saved_, source_, line_); }
  PlythCriticalSection(const PlythCriticalSection&) = delete;
  PlythCriticalSection& operator=(const PlythCriticalSection&) = delete;

 private:
  PlythSavedIds saved_;
  const char* source_;
  int line_;
};

// Runs another web API in-process as `user` with root ids held; `result`
// gets the called method's whole result object. Always true.
bool PlythWebAPIExec(Json::Value& result, const char* api, int version, const char* method,
                     const Json::Value& params, const char* user);
// The file record of a permanent link; 0 or the link service's error code.
int PlythFileGet(const std::string& user, const std::string& permanentLink,
                 const std::string& sharingToken, Json::Value& file);
// Unlocks a sharing link; 0 and the token, or the link service's error code.
int PlythSharingAuth(const std::string& sharingLink, const std::string& password,
                     std::string& sharingToken);

// Record conversions; member assignment into `out`, which is not cleared.
int ConvertFileInfoToJSon(const Tarnova::FileInfo& info, Json::Value& out);
int ConvertVersionInfoToJSon(const Tarnova::RevisionInfo& info, Json::Value& out);
int ConvertLabelInfoToJSon(const Tarnova::LabelInfo& info, Json::Value& out);

// Request parsers: 0, or -1 when rejected.
int JsonReqToMemberSelector(const Json::Value& req, Tarnova::MemberSelector& member);
int JsonReqToLabelAction(const Json::Value& req, Tarnova::LabelEditAction& action);
int JsonReqToStarAction(const Json::Value& req, Tarnova::StarEditAction& action);
void ParseFileListFilter(const Json::Value& req, bool& starred, std::string& labelId,
                         std::vector<std::string>& types, std::vector<std::string>& extensions);
bool IsSafePath(const std::string& path);
int PlythGetUID(const std::string& user);
