// Request parsers, path safety and the cached user-id lookup: every
// acceptance and rejection with the exact system-log line it leaves.
#include "../module_testing.h"
#include "plyth_utils.h"
#include "zant/vlibc.h"

namespace {

const std::string kSource = PLYTH_UTILS_SOURCE;

// One parser call: the request text, the result, the target afterwards in
// short ("a|b|..."), and the log line after "<source>:" (empty: none).
struct Row {
  const char *description, *json;
  int result;
  const char *after, *log;
};

class Parser : public ::testing::TestWithParam<Row> {
 protected:
  // Called with the parser's result and its target in short, both taken first.
  void Check(int result, const std::string& after) {
    EXPECT_EQ(result, GetParam().result);
    EXPECT_EQ(after, GetParam().after);
    EXPECT_EQ(syslog_.Lines(), *GetParam().log ? (Lines{{3, kSource + ":" + GetParam().log}}) : Lines());
  }
  SyslogCapture syslog_;
  Json::Value req_ = Parse(GetParam().json);
};

class MemberSelector : public Parser {};

TEST_P(MemberSelector, FillsOrRejectsSilently) {
  Tarnova::MemberSelector m{"old", "old", 7, 8};
  int result = JsonReqToMemberSelector(req_, m);
  Check(result, m.type + "|" + m.name + "|" + std::to_string(m.uid) + "|" + std::to_string(m.gid));
}

INSTANTIATE_TEST_SUITE_P(Rows, MemberSelector, ::testing::Values(
    Row{"array", R"([{"type":"user"}])", -1, "old|old|7|8", ""},
    Row{"type not string", R"({"type":1})", -1, "old|old|7|8", ""},
    Row{"all", R"({"type":"user","name":"bob","uid":1026,"gid":100})", 0, "user|bob|1026|100", ""},
    Row{"empty name", R"({"type":"user","name":""})", -1, "user|old|7|8", ""},
    Row{"name not string", R"({"type":"user","name":5})", -1, "user|old|7|8", ""},
    Row{"uid fraction", R"({"type":"user","uid":1.5})", -1, "user|old|7|8", ""},
    Row{"uid whole real", R"({"type":"user","uid":2.0})", 0, "user|old|2|8", ""},
    Row{"uid -1 wraps", R"({"type":"user","uid":-1})", 0, "user|old|4294967295|8", ""},
    Row{"gid bool", R"({"type":"group","uid":1,"gid":true})", -1, "group|old|1|8", ""}));

class LabelAction : public Parser {};

TEST_P(LabelAction, FillsOrRejectsWithLogLine) {
  Tarnova::LabelEditAction a;
  int result = JsonReqToLabelAction(req_, a);
  Check(result, a.action + "|" + a.label_id + "|" + a.label_name + "|" + a.member.type);
}

// "requiered" and the missing line ends are the established log texts.
const char kLabelShape[] = "287 label is expected as string or object\n";
const char kNoAction[] = "300 action is requiered\n";
const char kNoTarget[] = "308 one of label name and label id is requiered\n";

INSTANTIATE_TEST_SUITE_P(Rows, LabelAction, ::testing::Values(
    Row{"string adds", R"("team")", 0, "add||team|", ""},
    Row{"array", R"(["team"])", -1, "|||", kLabelShape},
    Row{"no action", R"({"name":"team"})", -1, "|||", kNoAction},
    Row{"empty targets", R"({"action":"x","label_id":"","name":""})", -1, "x|||", kNoTarget},
    Row{"by id", R"({"action":"remove","label_id":"L1"})", 0, "remove|L1||", ""},
    Row{"member", R"({"action":"add","name":"t","member":{"type":"user"}})", 0, "add||t|user", ""},
    Row{"bad member", R"({"action":"add","name":"t","member":null})", -1, "add||t|", "314 invalid member format"}));

class StarAction : public Parser {};

TEST_P(StarAction, FillsOrRejectsWithLogLine) {
  Tarnova::StarEditAction a;
  a.starred = true;
  int result = JsonReqToStarAction(req_, a);
  Check(result, std::to_string(a.starred) + "|" + a.member.type);
}

const char kStarShape[] = "325 starred is expected as boolean or object\n";
const char kNoStar[] = "335 starred is requiered\n";

INSTANTIATE_TEST_SUITE_P(Rows, StarAction, ::testing::Values(
    Row{"false", "false", 0, "0|", ""},
    Row{"text", R"("true")", -1, "1|", kStarShape},
    Row{"empty object", "{}", -1, "1|", kNoStar},
    Row{"starred number", R"({"starred":1})", -1, "1|", kNoStar},
    Row{"member", R"({"starred":false,"member":{"type":"group","gid":5}})", 0, "0|group", ""},
    Row{"bad member", R"({"starred":false,"member":{"type":"user","name":""}})", -1, "0|user",
        "343 invalid member format"}));

class FileListFilter : public Parser {};

TEST_P(FileListFilter, FillsOutputs) {
  bool starred = true;
  std::string labelId = "old";
  Strings types = {"prev"}, extensions = {"prev"};
  ParseFileListFilter(req_, starred, labelId, types, extensions);
  Check(0, std::to_string(starred) + "|" + labelId + "|" + ::testing::PrintToString(types) +
               ::testing::PrintToString(extensions));
}

INSTANTIATE_TEST_SUITE_P(Rows, FileListFilter, ::testing::Values(
    Row{"not object", R"(["doc"])", 0, R"(1|old|{ "prev" }{ "prev" })", ""},
    Row{"full", R"({"starred":true,"label_id":"L1","type":["doc","img"],"extensions":["odt"]})", 0,
        R"(1|L1|{ "prev", "doc", "img" }{ "prev", "odt" })", ""},
    Row{"elements as text", R"({"type":[1,true,null],"extensions":[{}]})", 0,
        R"(0||{ "prev", "1", "true", "" }{ "prev", "" })", ""}));

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
