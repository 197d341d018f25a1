// Request parsers, path safety and the cached user-id lookup: every
// acceptance and rejection with the exact system-log line it leaves.
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <json/json.h>

#include "harness.h"
#include "plyth_utils.h"
#include "zant/vlibc.h"

namespace {

using plyth_test::ApplianceRoot;
using plyth_test::SyslogCapture;
using plyth_test::SyslogLine;

const std::string kSource = "server/ui-web/src/plyth/common/plyth_utils";

Json::Value Parse(const std::string& text) {
  Json::Value value;
  Json::Reader reader;
  EXPECT_TRUE(reader.parse(text, value)) << text;
  return value;
}

std::vector<SyslogLine> ErrorLine(const std::string& text) {
  if (text.empty()) return {};
  return {{3, kSource + text}};
}

template <typename Row>
std::string RowName(const ::testing::TestParamInfo<Row>& info) {
  std::string name = info.param.description;
  for (char& c : name) c = isalnum(static_cast<unsigned char>(c)) ? c : '_';
  return name;
}

// ---------------------------------------------------------------- members

struct MemberRow {
  const char* description;
  const char* json;
  int result;
  Tarnova::MemberSelector expected;  // starts from {"old", "old", 7, 8}
};
void PrintTo(const MemberRow& row, std::ostream* os) { *os << row.description; }
class MemberSelectorParse : public ::testing::TestWithParam<MemberRow> {};

TEST_P(MemberSelectorParse, FillsOrRejectsSilently) {
  const MemberRow& row = GetParam();
  SyslogCapture syslog;
  Tarnova::MemberSelector member{"old", "old", 7, 8};
  EXPECT_EQ(row.result, JsonReqToMemberSelector(Parse(row.json), member));
  EXPECT_EQ(row.expected.type, member.type);
  EXPECT_EQ(row.expected.name, member.name);
  EXPECT_EQ(row.expected.uid, member.uid);
  EXPECT_EQ(row.expected.gid, member.gid);
  EXPECT_TRUE(syslog.Lines().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, MemberSelectorParse,
    ::testing::Values(
        MemberRow{"null", "null", -1, {"old", "old", 7, 8}},
        MemberRow{"array", "[{\"type\":\"user\"}]", -1, {"old", "old", 7, 8}},
        MemberRow{"string", "\"user\"", -1, {"old", "old", 7, 8}},
        MemberRow{"no type", "{\"name\":\"bob\"}", -1, {"old", "old", 7, 8}},
        MemberRow{"type not string", "{\"type\":1}", -1, {"old", "old", 7, 8}},
        MemberRow{"type only", "{\"type\":\"user\"}", 0, {"user", "old", 7, 8}},
        MemberRow{"all members", "{\"type\":\"user\",\"name\":\"bob\",\"uid\":1026,\"gid\":100}", 0,
                  {"user", "bob", 1026, 100}},
        MemberRow{"empty name", "{\"type\":\"user\",\"name\":\"\"}", -1, {"user", "old", 7, 8}},
        MemberRow{"name not string", "{\"type\":\"user\",\"name\":5}", -1, {"user", "old", 7, 8}},
        MemberRow{"uid text", "{\"type\":\"user\",\"uid\":\"1026\"}", -1, {"user", "old", 7, 8}},
        MemberRow{"uid fraction", "{\"type\":\"user\",\"uid\":1.5}", -1, {"user", "old", 7, 8}},
        MemberRow{"uid whole real", "{\"type\":\"user\",\"uid\":2.0}", 0, {"user", "old", 2, 8}},
        MemberRow{"uid minus one wraps", "{\"type\":\"user\",\"uid\":-1}", 0,
                  {"user", "old", 4294967295u, 8}},
        MemberRow{"uid largest", "{\"type\":\"user\",\"uid\":4294967295}", 0,
                  {"user", "old", 4294967295u, 8}},
        MemberRow{"gid bool", "{\"type\":\"group\",\"uid\":1,\"gid\":true}", -1,
                  {"group", "old", 1, 8}},
        MemberRow{"gid", "{\"type\":\"group\",\"gid\":101}", 0, {"group", "old", 7, 101}}),
    RowName<MemberRow>);

// ----------------------------------------------------------------- labels

struct LabelRow {
  const char* description;
  const char* json;
  int result;
  const char* action;
  const char* labelId;
  const char* labelName;
  const char* memberType;
  const char* log;  // after "<source>", empty for none
};
void PrintTo(const LabelRow& row, std::ostream* os) { *os << row.description; }
class LabelActionParse : public ::testing::TestWithParam<LabelRow> {};

TEST_P(LabelActionParse, FillsOrRejectsWithLogLine) {
  const LabelRow& row = GetParam();
  SyslogCapture syslog;
  Tarnova::LabelEditAction action;
  EXPECT_EQ(row.result, JsonReqToLabelAction(Parse(row.json), action));
  EXPECT_EQ(row.action, action.action);
  EXPECT_EQ(row.labelId, action.label_id);
  EXPECT_EQ(row.labelName, action.label_name);
  EXPECT_EQ(row.memberType, action.member.type);
  EXPECT_EQ(ErrorLine(row.log), syslog.Lines());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, LabelActionParse,
    ::testing::Values(
        LabelRow{"string adds", "\"team\"", 0, "add", "", "team", "", ""},
        LabelRow{"null", "null", -1, "", "", "", "", ":287 label is expected as string or object\n"},
        LabelRow{"number", "12", -1, "", "", "", "", ":287 label is expected as string or object\n"},
        LabelRow{"array", "[\"team\"]", -1, "", "", "", "",
                 ":287 label is expected as string or object\n"},
        LabelRow{"no action", "{\"name\":\"team\"}", -1, "", "", "", "", ":300 action is requiered\n"},
        LabelRow{"empty action", "{\"action\":\"\",\"name\":\"team\"}", -1, "", "", "", "",
                 ":300 action is requiered\n"},
        LabelRow{"action object reads empty", "{\"action\":{},\"name\":\"team\"}", -1, "", "", "", "",
                 ":300 action is requiered\n"},
        LabelRow{"remove without target", "{\"action\":\"remove\"}", -1, "remove", "", "", "",
                 ":308 one of label name and label id is requiered\n"},
        LabelRow{"empty targets", "{\"action\":\"remove\",\"label_id\":\"\",\"name\":\"\"}", -1,
                 "remove", "", "", "", ":308 one of label name and label id is requiered\n"},
        LabelRow{"by id", "{\"action\":\"remove\",\"label_id\":\"L1\"}", 0, "remove", "L1", "", "",
                 ""},
        LabelRow{"by name", "{\"action\":\"add\",\"name\":\"team\"}", 0, "add", "", "team", "", ""},
        LabelRow{"number id as text", "{\"action\":\"add\",\"label_id\":42}", 0, "add", "42", "", "",
                 ""},
        LabelRow{"with member", "{\"action\":\"add\",\"name\":\"t\",\"member\":{\"type\":\"user\"}}",
                 0, "add", "", "t", "user", ""},
        // The missing line end of this text is the established log format.
        LabelRow{"bad member", "{\"action\":\"add\",\"name\":\"t\",\"member\":{\"name\":\"bob\"}}",
                 -1, "add", "", "t", "", ":314 invalid member format"},
        LabelRow{"null member", "{\"action\":\"add\",\"name\":\"t\",\"member\":null}", -1, "add", "",
                 "t", "", ":314 invalid member format"}),
    RowName<LabelRow>);

// ------------------------------------------------------------------ stars

struct StarRow {
  const char* description;
  const char* json;
  int result;
  bool starred;  // starts from true
  const char* memberType;
  const char* log;
};
void PrintTo(const StarRow& row, std::ostream* os) { *os << row.description; }
class StarActionParse : public ::testing::TestWithParam<StarRow> {};

TEST_P(StarActionParse, FillsOrRejectsWithLogLine) {
  const StarRow& row = GetParam();
  SyslogCapture syslog;
  Tarnova::StarEditAction action;
  action.starred = true;
  EXPECT_EQ(row.result, JsonReqToStarAction(Parse(row.json), action));
  EXPECT_EQ(row.starred, action.starred);
  EXPECT_EQ(row.memberType, action.member.type);
  EXPECT_EQ(ErrorLine(row.log), syslog.Lines());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, StarActionParse,
    ::testing::Values(
        StarRow{"true", "true", 0, true, "", ""},
        StarRow{"false", "false", 0, false, "", ""},
        StarRow{"null", "null", -1, true, "", ":325 starred is expected as boolean or object\n"},
        StarRow{"text", "\"true\"", -1, true, "", ":325 starred is expected as boolean or object\n"},
        StarRow{"number", "1", -1, true, "", ":325 starred is expected as boolean or object\n"},
        StarRow{"empty object", "{}", -1, true, "", ":335 starred is requiered\n"},
        StarRow{"starred number", "{\"starred\":1}", -1, true, "", ":335 starred is requiered\n"},
        StarRow{"object false", "{\"starred\":false}", 0, false, "", ""},
        StarRow{"with member", "{\"starred\":false,\"member\":{\"type\":\"group\",\"gid\":5}}", 0,
                false, "group", ""},
        // The missing line end of this text is the established log format.
        StarRow{"bad member", "{\"starred\":false,\"member\":{\"type\":\"user\",\"name\":\"\"}}", -1,
                false, "user", ":343 invalid member format"}),
    RowName<StarRow>);

// ---------------------------------------------------------------- filters

struct FilterRow {
  const char* description;
  const char* json;
  bool starred;  // starts from true
  const char* labelId;  // starts from "old"
  std::vector<std::string> types;  // starts from {"prev"}
  std::vector<std::string> extensions;  // starts from {"prev"}
};
void PrintTo(const FilterRow& row, std::ostream* os) { *os << row.description; }
class FileListFilterParse : public ::testing::TestWithParam<FilterRow> {};

TEST_P(FileListFilterParse, FillsOutputs) {
  const FilterRow& row = GetParam();
  bool starred = true;
  std::string labelId = "old";
  std::vector<std::string> types = {"prev"};
  std::vector<std::string> extensions = {"prev"};
  ParseFileListFilter(Parse(row.json), starred, labelId, types, extensions);
  EXPECT_EQ(row.starred, starred);
  EXPECT_EQ(row.labelId, labelId);
  EXPECT_EQ(row.types, types);
  EXPECT_EQ(row.extensions, extensions);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, FileListFilterParse,
    ::testing::Values(
        FilterRow{"not object", "[\"doc\"]", true, "old", {"prev"}, {"prev"}},
        FilterRow{"null", "null", true, "old", {"prev"}, {"prev"}},
        FilterRow{"empty object resets scalars", "{}", false, "", {"prev"}, {"prev"}},
        FilterRow{"full filter",
                  "{\"starred\":true,\"label_id\":\"L1\",\"type\":[\"doc\",\"image\"],"
                  "\"extensions\":[\"odt\",\"png\"]}",
                  true, "L1", {"prev", "doc", "image"}, {"prev", "odt", "png"}},
        FilterRow{"single string type adds nothing", "{\"type\":\"doc\",\"extensions\":\"odt\"}",
                  false, "", {"prev"}, {"prev"}},
        FilterRow{"elements taken as text", "{\"type\":[1,true,null],\"extensions\":[{}]}", false, "",
                  {"prev", "1", "true", ""}, {"prev", ""}},
        FilterRow{"wrong scalar types read as defaults", "{\"starred\":\"yes\",\"label_id\":[1]}",
                  false, "", {"prev"}, {"prev"}},
        FilterRow{"number starred", "{\"starred\":2,\"label_id\":7}", true, "7", {"prev"}, {"prev"}}),
    RowName<FilterRow>);

// ------------------------------------------------------------------ paths

struct PathRow {
  const char* description;
  std::string path;
  bool safe;
};
void PrintTo(const PathRow& row, std::ostream* os) { *os << row.description; }
class SafePath : public ::testing::TestWithParam<PathRow> {};

TEST_P(SafePath, Decides) { EXPECT_EQ(GetParam().safe, IsSafePath(GetParam().path)); }

INSTANTIATE_TEST_SUITE_P(
    Rows, SafePath,
    ::testing::Values(PathRow{"plain", "a/b", true}, PathRow{"slashes", "/a//b/", true},
                      PathRow{"empty", "", true}, PathRow{"only slashes", "///", true},
                      PathRow{"three dots", "a/.../b", true}, PathRow{"dot prefix", "a/.hidden", true},
                      PathRow{"dots inside", "a/b..c", true},
                      PathRow{"dot component", "a/./b", false}, PathRow{"leading dotdot", "../x", false},
                      PathRow{"trailing dotdot", "/a/..", false}, PathRow{"lone dot", ".", false},
                      PathRow{"trailing dot slash", "a/./", false},
                      PathRow{"backslash", "a\\b", false}, PathRow{"backslash dotdot", "..\\x", false}),
    RowName<PathRow>);

// ----------------------------------------------------------- user lookup

// The cache lives as long as the process, so every test uses its own names.
std::string UserLine(const std::string& name, int uid) {
  return name + ":" + std::to_string(uid) + ":100:" + name + " user:/var/services/homes/" + name +
         "::x\n";
}

TEST(PlythGetUID, RefusesEmptyAndCapitalAnonymousWithoutLookup) {
  ApplianceRoot root;  // no user database: a lookup would fail and log
  SyslogCapture syslog;
  EXPECT_EQ(-1, PlythGetUID(""));
  EXPECT_EQ(-1, PlythGetUID("Anonymous"));
  EXPECT_TRUE(syslog.Lines().empty());
}

TEST(PlythGetUID, LowerCaseAnonymousIsAnOrdinaryName) {
  ApplianceRoot root;
  root.WriteFile("/usr/zant/etc/users", UserLine("anonymous", 1051) + UserLine("Anonymous", 1052));
  EXPECT_EQ(1051, PlythGetUID("anonymous"));
  EXPECT_EQ(-1, PlythGetUID("Anonymous"));
}

TEST(PlythGetUID, SecondCallIsAnsweredFromCache) {
  ApplianceRoot root;
  root.WriteFile("/usr/zant/etc/users", UserLine("cache_alice", 1026) + UserLine("cache_bob", 1027));
  SyslogCapture syslog;
  EXPECT_EQ(1026, PlythGetUID("cache_alice"));
  root.Remove("/usr/zant/etc/users");
  EXPECT_EQ(1026, PlythGetUID("cache_alice"));
  EXPECT_TRUE(syslog.Lines().empty());
  // An uncached name now reaches the missing database.
  EXPECT_EQ(-1, PlythGetUID("cache_bob"));
  EXPECT_EQ(1u, syslog.Lines().size());
}

TEST(PlythGetUID, FailedLookupLogsBaseLibraryErrorAndIsNotCached) {
  ApplianceRoot root;
  root.WriteFile("/usr/zant/etc/users", UserLine("fail_alice", 1026));
  SyslogCapture syslog;

  EXPECT_EQ(-1, PlythGetUID("fail_carol"));
  const int code = VLIBCErrGet();
  const std::string file = VLIBCErrorGetFile() ? VLIBCErrorGetFile() : "";
  const int line = VLIBCErrorGetLine();
  EXPECT_EQ(VLIBC_ERR_NO_SUCH_USER, code);
  EXPECT_FALSE(file.empty());
  EXPECT_GT(line, 0);
  // The missing line end of this text is the established log format.
  const std::string expected = kSource + ":39 ZANTUserGet(fail_carol) failed. [0x1D00 " + file +
                               ":" + std::to_string(line) + "]";
  EXPECT_EQ(std::vector<SyslogLine>({{3, expected}}), syslog.Lines());

  root.WriteFile("/usr/zant/etc/users", UserLine("fail_alice", 1026) + UserLine("fail_carol", 1030));
  EXPECT_EQ(1030, PlythGetUID("fail_carol"));
}

TEST(PlythGetUID, MissingDatabaseLogsFileOpenError) {
  ApplianceRoot root;
  SyslogCapture syslog;
  EXPECT_EQ(-1, PlythGetUID("nodb_dave"));
  ASSERT_EQ(1u, syslog.Lines().size());
  const std::string prefix = kSource + ":39 ZANTUserGet(nodb_dave) failed. [0x0900 ";
  EXPECT_EQ(prefix, syslog.Lines()[0].text.substr(0, prefix.size()));
}

}  // namespace
