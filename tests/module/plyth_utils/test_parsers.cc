// Request parsers, path safety and the cached user-id lookup: every
// acceptance and rejection with the exact system-log line it leaves.
#include "../module_testing.h"
#include "plyth_utils.h"
#include "zant/vlibc.h"

namespace {

const std::string kSource = PLYTH_UTILS_SOURCE;

// Each parser's result and its target afterwards in short ("result|a|b|...").
std::string MemberOf(const Json::Value& req) {
  Tarnova::MemberSelector m{"old", "old", 7, 8};
  const int result = JsonReqToMemberSelector(req, m);
  return std::to_string(result) + "|" + m.type + "|" + m.name + "|" + std::to_string(m.uid) + "|" +
         std::to_string(m.gid);
}
std::string LabelOf(const Json::Value& req) {
  Tarnova::LabelEditAction a;
  const int result = JsonReqToLabelAction(req, a);
  return std::to_string(result) + "|" + a.action + "|" + a.label_id + "|" + a.label_name + "|" + a.member.type;
}
std::string StarOf(const Json::Value& req) {
  Tarnova::StarEditAction a;
  a.starred = true;
  const int result = JsonReqToStarAction(req, a);
  return std::to_string(result) + "|" + std::to_string(a.starred) + "|" + a.member.type;
}
std::string FilterOf(const Json::Value& req) {
  bool starred = true;
  std::string labelId = "old";
  Strings types = {"prev"}, extensions = {"prev"};
  ParseFileListFilter(req, starred, labelId, types, extensions);
  return std::to_string(starred) + "|" + labelId + "|" + ::testing::PrintToString(types) +
         ::testing::PrintToString(extensions);
}

// The member selector never logs; "requiered" and the missing line ends are
// the established log texts.
TEST(Parsers, FillOrRejectWithTheirLogLines) {
  const struct {
    std::string (*parse)(const Json::Value&);
    const char *json, *after, *log = "";  // the log line after "<source>:" (empty: none)
  } rows[] = {
      {.parse = MemberOf, .json = R"([{"type":"user"}])", .after = "-1|old|old|7|8"},
      {.parse = MemberOf, .json = R"({"type":1})", .after = "-1|old|old|7|8"},
      {.parse = MemberOf, .json = R"({"type":"user","name":"bob","uid":1026,"gid":100})",
       .after = "0|user|bob|1026|100"},
      {.parse = MemberOf, .json = R"({"type":"user","name":""})", .after = "-1|user|old|7|8"},
      {.parse = MemberOf, .json = R"({"type":"user","name":5})", .after = "-1|user|old|7|8"},
      {.parse = MemberOf, .json = R"({"type":"user","uid":1.5})", .after = "-1|user|old|7|8"},
      {.parse = MemberOf, .json = R"({"type":"user","uid":2.0})", .after = "0|user|old|2|8"},
      {.parse = MemberOf, .json = R"({"type":"user","uid":-1})", .after = "0|user|old|4294967295|8"},
      {.parse = MemberOf, .json = R"({"type":"group","uid":1,"gid":true})", .after = "-1|group|old|1|8"},
      {.parse = LabelOf, .json = R"("team")", .after = "0|add||team|"},
      {.parse = LabelOf, .json = R"(["team"])", .after = "-1||||",
       .log = "287 label is expected as string or object\n"},
      {.parse = LabelOf, .json = R"({"name":"team"})", .after = "-1||||", .log = "300 action is requiered\n"},
      {.parse = LabelOf, .json = R"({"action":"x","label_id":"","name":""})", .after = "-1|x|||",
       .log = "308 one of label name and label id is requiered\n"},
      {.parse = LabelOf, .json = R"({"action":"remove","label_id":"L1"})", .after = "0|remove|L1||"},
      {.parse = LabelOf, .json = R"({"action":"add","name":"t","member":{"type":"user"}})", .after = "0|add||t|user"},
      {.parse = LabelOf, .json = R"({"action":"add","name":"t","member":null})", .after = "-1|add||t|",
       .log = "314 invalid member format"},
      {.parse = StarOf, .json = "false", .after = "0|0|"},
      {.parse = StarOf, .json = R"("true")", .after = "-1|1|", .log = "325 starred is expected as boolean or object\n"},
      {.parse = StarOf, .json = R"({"starred":1})", .after = "-1|1|", .log = "335 starred is requiered\n"},
      {.parse = StarOf, .json = R"({"starred":false,"member":{"type":"group","gid":5}})", .after = "0|0|group"},
      {.parse = StarOf, .json = R"({"starred":false,"member":{"type":"user","name":""}})", .after = "-1|0|user",
       .log = "343 invalid member format"},
      {.parse = FilterOf, .json = R"(["doc"])", .after = R"(1|old|{ "prev" }{ "prev" })"},
      {.parse = FilterOf, .json = R"({"starred":true,"label_id":"L1","type":["doc","img"],"extensions":["odt"]})",
       .after = R"(1|L1|{ "prev", "doc", "img" }{ "prev", "odt" })"},
      {.parse = FilterOf, .json = R"({"type":[1,true,null],"extensions":[{}]})",
       .after = R"(0||{ "prev", "1", "true", "" }{ "prev", "" })"}};
  for (const auto& row : rows) {
    SyslogCapture syslog;
    EXPECT_EQ(row.parse(Parse(row.json)), row.after) << row.json;
    EXPECT_EQ(syslog.Lines(), *row.log ? (Lines{{3, kSource + ":" + row.log}}) : Lines()) << row.json;
  }
}

TEST(IsSafePath, Decides) {
  for (const char* safe : {"a/b", "/a//b/", "", "///", "a/.../b", "a/b..c"}) EXPECT_TRUE(IsSafePath(safe)) << safe;
  for (const char* unsafe : {"a/./b", "../x", "/a/..", "a\\b"}) EXPECT_FALSE(IsSafePath(unsafe)) << unsafe;
}

// The cache lives as long as the process.
std::string User(const char* name, int uid) {
  return std::string(name) + ":" + std::to_string(uid) + ":100:x:/home/x::x\n";
}

TEST(PlythGetUID, RefusesEmptyAndCapitalAnonymousCachesHitsLogsMisses) {
  ApplianceRoot root;
  root.WriteFile("/usr/zant/etc/users", User("anonymous", 1051) + User("Anonymous", 1052) + User("cache_alice", 1026));
  SyslogCapture syslog;
  EXPECT_EQ(-1, PlythGetUID(""));
  EXPECT_EQ(-1, PlythGetUID("Anonymous"));
  EXPECT_EQ(1051, PlythGetUID("anonymous"));
  EXPECT_EQ(1026, PlythGetUID("cache_alice"));
  root.WriteFile("/usr/zant/etc/users", User("cache_bob", 1027));
  EXPECT_EQ(1026, PlythGetUID("cache_alice"));  // from the cache
  EXPECT_TRUE(syslog.Lines().empty());

  EXPECT_EQ(-1, PlythGetUID("cache_carol"));
  ASSERT_EQ(VLIBC_ERR_NO_SUCH_USER, VLIBCErrGet());
  const std::string file = VLIBCErrorGetFile() ? VLIBCErrorGetFile() : "";
  EXPECT_FALSE(file.empty());
  const std::string at = file + ":" + std::to_string(VLIBCErrorGetLine()) + "]";
  EXPECT_EQ(syslog.Lines(), (Lines{{3, kSource + ":39 ZANTUserGet(cache_carol) failed. [0x1D00 " + at}}));
  root.WriteFile("/usr/zant/etc/users", User("cache_carol", 1030));
  EXPECT_EQ(1030, PlythGetUID("cache_carol"));
}

}  // namespace
