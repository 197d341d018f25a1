// File, revision and label records as JSON: exact shapes, integer widths,
// the early return on an unparsable properties text and its log line.
#include <cstdint>
#include <limits>
#include <set>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <json/json.h>

#include "harness.h"
#include "plyth_utils.h"
#include "zant/json_util.h"

namespace {

using plyth_test::SyslogCapture;
using plyth_test::SyslogLine;

Json::Value Parse(const std::string& text) {
  Json::Value value;
  Json::Reader reader;
  EXPECT_TRUE(reader.parse(text, value)) << text;
  return value;
}

std::set<std::string> Keys(const Json::Value& object) {
  const std::vector<std::string> names = object.getMemberNames();
  return std::set<std::string>(names.begin(), names.end());
}

// Every field differs from its neighbours, so a swapped source shows.
Tarnova::FileInfo FullRecord() {
  Tarnova::FileInfo info;
  info.file_id = "812";
  info.path = "/docs/plan.odt";
  info.nxo_path = "/volume1/homes/alice/Plyth/docs/plan.odt";
  info.display_path = "/mydrive/docs/plan.odt";
  info.original_path = "/old/plan.odt";
  info.name = "plan.odt";
  info.kind = Tarnova::FileInfo::kFile;
  info.parent_id = "811";
  info.created_time = 4000000001u;
  info.access_time = 1700000002;
  info.modified_time = 1700000003;
  info.change_time = 1700000004;
  info.size = 5000000000ull;
  info.capabilities.can_preview = true;
  info.capabilities.can_read = true;
  info.capabilities.can_write = false;
  info.capabilities.can_delete = true;
  info.capabilities.can_rename = false;
  info.capabilities.can_comment = true;
  info.capabilities.can_share = false;
  info.capabilities.can_encrypt = true;
  info.capabilities.can_organize = false;
  info.sync_id = 77;
  info.max_id = 99;
  info.removed = false;
  info.encrypted = true;
  info.starred = true;
  info.shared = false;
  info.adv_shared = true;
  info.sync_to_device = false;
  info.shared_with = {{"p1", "user", "bob", "viewer", true}, {"p2", "group", "staff", "editor", false}};
  info.properties = "{\"a\":1}";
  info.app_properties = "[\"x\"]";
  info.owner = {"Alice A.", "alice", 1026};
  info.permanent_link = "6Ab9";
  info.labels = {{"L1", "urgent", "red", 3}, {"L2", "later", "gray", -1}};
  info.hash = "c0ffee";
  info.content_snippet = "snip";
  info.revisions = 4;
  info.content_type = "document";
  info.image_time = 1600000000;
  return info;
}

const char* const kFullRecordJson = R"({
  "file_id": "812",
  "path": "/docs/plan.odt",
  "nxo_path": "/volume1/homes/alice/Plyth/docs/plan.odt",
  "display_path": "/mydrive/docs/plan.odt",
  "original_path": "/old/plan.odt",
  "name": "plan.odt",
  "type": "file",
  "parent_id": "811",
  "created_time": 4000000001,
  "access_time": 1700000002,
  "modified_time": 1700000003,
  "change_time": 1700000004,
  "size": 5000000000,
  "capabilities": {"can_preview": true, "can_read": true, "can_write": false,
                   "can_delete": true, "can_rename": false, "can_comment": true,
                   "can_share": false, "can_encrypt": true, "can_organize": false},
  "version_id": "77",
  "sync_id": 77,
  "max_id": 99,
  "removed": false,
  "encrypted": true,
  "starred": true,
  "shared": false,
  "adv_shared": true,
  "sync_to_device": false,
  "shared_with": [
    {"permission_id": "p1", "type": "user", "name": "bob", "role": "viewer", "inherited": true},
    {"permission_id": "p2", "type": "group", "name": "staff", "role": "editor", "inherited": false}
  ],
  "properties": {"a": 1},
  "app_properties": ["x"],
  "owner": {"display_name": "Alice A.", "name": "alice", "uid": 1026},
  "permanent_link": "6Ab9",
  "labels": [
    {"label_id": "L1", "color": "red", "name": "urgent"},
    {"label_id": "L2", "color": "gray", "name": "later"}
  ],
  "hash": "c0ffee",
  "content_snippet": "snip",
  "revisions": 4,
  "content_type": "document",
  "image_metadata": {"time": 1600000000}
})";

// Keys written before the properties text is parsed.
const std::vector<std::string> kKeysBeforeProperties = {
    "file_id", "path", "nxo_path", "display_path", "original_path", "name", "type",
    "parent_id", "created_time", "access_time", "modified_time", "change_time", "size",
    "capabilities", "version_id", "sync_id", "max_id", "removed", "encrypted", "starred",
    "shared", "adv_shared", "sync_to_device", "shared_with"};

TEST(ConvertFileInfoToJSon, FullRecordHasExactShape) {
  SyslogCapture syslog;
  Json::Value out;
  ASSERT_EQ(0, ConvertFileInfoToJSon(FullRecord(), out));
  EXPECT_EQ(ZANT::JsonToString(Parse(kFullRecordJson)), ZANT::JsonToString(out));
  EXPECT_TRUE(syslog.Lines().empty());
}

// Numbers are unsigned of their width, except a label's signed position.
TEST(ConvertFileInfoToJSon, NumbersAreUnsigned) {
  Json::Value out;
  ASSERT_EQ(0, ConvertFileInfoToJSon(FullRecord(), out));
  for (const char* key : {"created_time", "access_time", "modified_time", "change_time", "size",
                          "sync_id", "max_id", "revisions"}) {
    EXPECT_EQ(Json::uintValue, out[key].type()) << key;
  }
  EXPECT_EQ(Json::uintValue, out["owner"]["uid"].type());
  EXPECT_EQ(Json::uintValue, out["image_metadata"]["time"].type());
}

struct KindRow {
  const char* description;
  int kind;
  const char* type;
};
void PrintTo(const KindRow& row, std::ostream* os) { *os << row.description; }
class KindToType : public ::testing::TestWithParam<KindRow> {};

TEST_P(KindToType, NamesOnlyFileAndDir) {
  Tarnova::FileInfo info = FullRecord();
  info.kind = GetParam().kind;
  Json::Value out;
  ASSERT_EQ(0, ConvertFileInfoToJSon(info, out));
  EXPECT_EQ(Json::Value(GetParam().type), out["type"]);
}

INSTANTIATE_TEST_SUITE_P(Kinds, KindToType,
                         ::testing::Values(KindRow{"file", 0, "file"}, KindRow{"dir", 1, "dir"},
                                           KindRow{"third kind", 2, ""},
                                           KindRow{"negative kind", -1, ""}),
                         [](const auto& info) {
                           std::string name = info.param.description;
                           for (char& c : name) c = isalnum(static_cast<unsigned char>(c)) ? c : '_';
                           return name;
                         });

TEST(ConvertFileInfoToJSon, LargestSyncIdKeepsAllDigits) {
  Tarnova::FileInfo info = FullRecord();
  info.sync_id = std::numeric_limits<uint64_t>::max();
  Json::Value out;
  ASSERT_EQ(0, ConvertFileInfoToJSon(info, out));
  EXPECT_EQ("18446744073709551615", out["version_id"].asString());
  ASSERT_TRUE(out["sync_id"].isUInt64());
  EXPECT_EQ(std::numeric_limits<uint64_t>::max(), out["sync_id"].asUInt64());
  EXPECT_EQ("18446744073709551615", ZANT::JsonToString(out["sync_id"]));
}

TEST(ConvertFileInfoToJSon, EmptyListsStayAsEmptyArrays) {
  Tarnova::FileInfo info = FullRecord();
  info.shared_with.clear();
  info.labels.clear();
  Json::Value out;
  ASSERT_EQ(0, ConvertFileInfoToJSon(info, out));
  EXPECT_EQ("[]", ZANT::JsonToString(out["shared_with"]));
  EXPECT_EQ("[]", ZANT::JsonToString(out["labels"]));
}

TEST(ConvertFileInfoToJSon, KeepsForeignMembersOfTarget) {
  Json::Value out = Parse(R"({"extra": {"kept": true}, "name": "stale"})");
  ASSERT_EQ(0, ConvertFileInfoToJSon(FullRecord(), out));
  EXPECT_EQ(Parse(R"({"kept": true})"), out["extra"]);
  EXPECT_EQ("plan.odt", out["name"].asString());
}

struct ParseFailureRow {
  const char* description;
  std::string properties;
  std::string appProperties;
  const char* logText;
  // Members beyond kKeysBeforeProperties.
  std::vector<std::string> moreKeys;
};
void PrintTo(const ParseFailureRow& row, std::ostream* os) { *os << row.description; }
class PropertiesParseFailure : public ::testing::TestWithParam<ParseFailureRow> {};

// The reader parses straight into the member, so the member that failed is
// present (holding what the reader left), and nothing after it is written.
TEST_P(PropertiesParseFailure, StopsAtFailedMemberAndLogs) {
  const ParseFailureRow& row = GetParam();
  Tarnova::FileInfo info = FullRecord();
  info.properties = row.properties;
  info.app_properties = row.appProperties;
  SyslogCapture syslog;
  Json::Value out = Parse(R"({"extra": 1})");

  EXPECT_EQ(-1, ConvertFileInfoToJSon(info, out));

  std::set<std::string> expected(kKeysBeforeProperties.begin(), kKeysBeforeProperties.end());
  expected.insert(row.moreKeys.begin(), row.moreKeys.end());
  expected.insert("extra");
  EXPECT_EQ(expected, Keys(out));
  EXPECT_EQ(std::vector<SyslogLine>({{3, row.logText}}), syslog.Lines());
}

INSTANTIATE_TEST_SUITE_P(
    Failures, PropertiesParseFailure,
    ::testing::Values(
        ParseFailureRow{"properties_not_json", "not json", "{}",
                        "server/ui-web/src/plyth/common/plyth_utils:137 Properties cannot be parsed.\n",
                        {"properties"}},
        ParseFailureRow{"properties_empty_text", "", "{}",
                        "server/ui-web/src/plyth/common/plyth_utils:137 Properties cannot be parsed.\n",
                        {"properties"}},
        // Deeper than the reader's stack limit, which it signals by throwing.
        ParseFailureRow{"properties_too_deep", std::string(2000, '['), "{}",
                        "server/ui-web/src/plyth/common/plyth_utils:137 Properties cannot be parsed.\n",
                        {"properties"}},
        ParseFailureRow{"app_properties_not_json", "{\"a\":1}", "{\"b\":",
                        "server/ui-web/src/plyth/common/plyth_utils:142 App properties cannot be parsed.\n",
                        {"properties", "app_properties"}}),
    [](const auto& info) { return std::string(info.param.description); });

TEST(ConvertFileInfoToJSon, AppPropertiesFailureKeepsParsedProperties) {
  Tarnova::FileInfo info = FullRecord();
  info.app_properties = "{";
  SyslogCapture syslog;
  Json::Value out;
  EXPECT_EQ(-1, ConvertFileInfoToJSon(info, out));
  EXPECT_EQ(Parse(R"({"a": 1})"), out["properties"]);
  EXPECT_FALSE(out.isMember("owner"));
}

TEST(ConvertVersionInfoToJSon, ExactShapeAndWidths) {
  Tarnova::RevisionInfo info;
  info.version_id = "18446744073709551615";
  info.created_time = 4294967295u;
  info.modified_time = 1700000001;
  info.hash = "abc";
  info.size = 1ull << 40;
  info.editor_uid = 1026;
  info.editors = "alice,bob";
  Json::Value out = Parse(R"({"extra": "kept"})");

  ASSERT_EQ(0, ConvertVersionInfoToJSon(info, out));
  EXPECT_EQ(ZANT::JsonToString(Parse(R"({"extra": "kept", "version_id": "18446744073709551615",
      "created_time": 4294967295, "modified_time": 1700000001, "hash": "abc",
      "size": 1099511627776, "editor_uid": 1026, "editors": "alice,bob"})")),
            ZANT::JsonToString(out));
  for (const char* key : {"created_time", "modified_time", "size", "editor_uid"}) {
    EXPECT_EQ(Json::uintValue, out[key].type()) << key;
  }
}

TEST(ConvertLabelInfoToJSon, ExactShapeWithSignedPosition) {
  Tarnova::LabelInfo info{"L7", "urgent", "red", -5};
  Json::Value out = Parse(R"({"extra": "kept"})");
  ASSERT_EQ(0, ConvertLabelInfoToJSon(info, out));
  EXPECT_EQ(ZANT::JsonToString(Parse(
                R"({"extra": "kept", "label_id": "L7", "name": "urgent", "color": "red", "position": -5})")),
            ZANT::JsonToString(out));
  EXPECT_EQ(Json::intValue, out["position"].type());
}

}  // namespace
