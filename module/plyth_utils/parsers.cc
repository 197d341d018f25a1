// Request shapes shared by the product's web APIs: member selectors, label
// and star edits, file-list filters; the path test for client-supplied paths
// and the user-name to uid lookup.
//
// Request values come straight from clients, so no conversion here may
// throw: a member of the wrong type reads as the empty text or false, where
// JsonCpp's own conversions would throw.
#include <syslog.h>

#include <cstdint>
#include <map>

#include "json_readers.h"
#include "plyth_utils.h"
#include "zant/vlibc.h"

namespace {

// Log lines name the line of the shared source where the rejection was met;
// other modules match on these numbers, so they stay fixed.
constexpr int kUserGetFailedLine = 39;
constexpr int kLabelShapeLine = 287;
constexpr int kLabelActionLine = 300;
constexpr int kLabelTargetLine = 308;
constexpr int kLabelMemberLine = 314;
constexpr int kStarShapeLine = 325;
constexpr int kStarMissingLine = 335;
constexpr int kStarMemberLine = 343;

// An integral value (integer, or a real without fraction) cut to 32 bits the
// way a C cast to unsigned does, so -1 becomes 4294967295.
uint32_t Unsigned32Of(const Json::Value& value) {
  if (value.isInt64()) return static_cast<uint32_t>(value.asInt64());
  return static_cast<uint32_t>(value.asUInt64());
}

void AppendTexts(const Json::Value& list, std::vector<std::string>& out) {
  if (!list.isArray()) return;
  for (const Json::Value& element : list) out.push_back(JsonText(element));
}

}  // namespace

int JsonReqToMemberSelector(const Json::Value& req, Tarnova::MemberSelector& member) {
  if (!req.isObject() || !req.isMember("type") || !req["type"].isString()) return -1;
  member.type = req["type"].asString();

  if (req.isMember("name")) {
    const Json::Value& name = req["name"];
    if (!name.isString() || name.asString().empty()) return -1;
    member.name = name.asString();
  }
  if (req.isMember("uid")) {
    if (!req["uid"].isIntegral()) return -1;
    member.uid = Unsigned32Of(req["uid"]);
  }
  if (req.isMember("gid")) {
    if (!req["gid"].isIntegral()) return -1;
    member.gid = Unsigned32Of(req["gid"]);
  }
  return 0;
}

int JsonReqToLabelAction(const Json::Value& req, Tarnova::LabelEditAction& action) {
  if (req.isString()) {
    action.action = "add";
    action.label_name = req.asString();
    return 0;
  }
  if (!req.isObject()) {
    syslog(LOG_ERR, "%s:%d label is expected as string or object\n", PLYTH_UTILS_SOURCE,
           kLabelShapeLine);
    return -1;
  }

  action.action = JsonText(req["action"]);
  if (action.action.empty()) {
    // QUIRK: "requiered" is the established log text.
    syslog(LOG_ERR, "%s:%d action is requiered\n", PLYTH_UTILS_SOURCE, kLabelActionLine);
    return -1;
  }

  action.label_id = JsonText(req["label_id"]);
  action.label_name = JsonText(req["name"]);
  if (action.label_id.empty() && action.label_name.empty()) {
    // QUIRK: "requiered" is the established log text.
    syslog(LOG_ERR, "%s:%d one of label name and label id is requiered\n", PLYTH_UTILS_SOURCE,
           kLabelTargetLine);
    return -1;
  }

  if (req.isMember("member") && JsonReqToMemberSelector(req["member"], action.member) != 0) {
    // QUIRK: no line end on this text.
    syslog(LOG_ERR, "%s:%d invalid member format", PLYTH_UTILS_SOURCE, kLabelMemberLine);
    return -1;
  }
  return 0;
}

int JsonReqToStarAction(const Json::Value& req, Tarnova::StarEditAction& action) {
  if (req.isBool()) {
    action.starred = req.asBool();
    return 0;
  }
  if (!req.isObject()) {
    syslog(LOG_ERR, "%s:%d starred is expected as boolean or object\n", PLYTH_UTILS_SOURCE,
           kStarShapeLine);
    return -1;
  }

  if (req.isMember("starred") && req["starred"].isBool()) {
    action.starred = req["starred"].asBool();
    if (req.isMember("member") && JsonReqToMemberSelector(req["member"], action.member) != 0) {
      // QUIRK: no line end on this text.
      syslog(LOG_ERR, "%s:%d invalid member format", PLYTH_UTILS_SOURCE, kStarMemberLine);
      return -1;
    }
    return 0;
  }
  // QUIRK: "requiered" is the established log text.
  syslog(LOG_ERR, "%s:%d starred is requiered\n", PLYTH_UTILS_SOURCE, kStarMissingLine);
  return -1;
}

void ParseFileListFilter(const Json::Value& req, bool& starred, std::string& labelId,
                         std::vector<std::string>& types, std::vector<std::string>& extensions) {
  if (!req.isObject()) return;
  starred = JsonFlag(req["starred"]);
  labelId = JsonText(req["label_id"]);
  AppendTexts(req["type"], types);
  AppendTexts(req["extensions"], extensions);
}

bool IsSafePath(const std::string& path) {
  std::string::size_type start = 0;
  while (start <= path.size()) {
    std::string::size_type end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    const std::string component = path.substr(start, end - start);
    if (!component.empty()) {
      if (component == "." || component == "..") return false;
      if (component.find_first_of("\\/") != std::string::npos) return false;
    }
    start = end + 1;
  }
  return true;
}

int PlythGetUID(const std::string& user) {
  if (user.empty()) return -1;
  // QUIRK: only this spelling is refused; lower-case "anonymous" is looked up like any name.
  if (user == "Anonymous") return -1;

  // Successful lookups only; the process lives for one request at a time, so
  // the map takes no lock.
  static std::map<std::string, int> cache;
  const auto cached = cache.find(user);
  if (cached != cache.end()) return cached->second;

  PZANTUSER entry = nullptr;
  if (ZANTUserGet(user.c_str(), &entry) < 0) {
    const char* file = VLIBCErrorGetFile();
    // QUIRK: no line end on this text.
    syslog(LOG_ERR, "%s:%d ZANTUserGet(%s) failed. [0x%04X %s:%d]", PLYTH_UTILS_SOURCE,
           kUserGetFailedLine, user.c_str(), static_cast<unsigned>(VLIBCErrGet()),
           file ? file : "", VLIBCErrorGetLine());
    if (entry != nullptr) ZANTUserFree(entry);
    return -1;
  }
  if (entry == nullptr) return -1;
  const int uid = static_cast<int>(entry->uid);
  ZANTUserFree(entry);
  cache[user] = uid;
  return uid;
}
