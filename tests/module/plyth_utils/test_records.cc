// File, revision and label records as JSON: exact shapes, integer widths,
// the failure on an unparsable properties text and its log line.
#include <cstdint>
#include <limits>

#include "../module_testing.h"
#include "plyth_utils.h"

namespace {

// Every field differs from its neighbours, so a swapped source shows; the
// numbers need their full unsigned widths.
Tarnova::FileInfo FullRecord() {
  return Tarnova::FileInfo{
      "812", "/docs/plan.odt", "/srv/plyth/alice/docs/plan.odt", "/home/docs/plan.odt", "/old/plan.odt", "plan.odt",
      Tarnova::FileInfo::kFile, "811", 4000000001u, 1700000002, 1700000003, 1700000004, 5000000000ull,
      {true, true, false, true, false, true, false, true, false}, 77, 99, false, true, true, false, true, false,
      {{"p1", "user", "bob", "viewer", true}, {"p2", "group", "staff", "editor", false}}, "{\"a\":1}", "[\"x\"]",
      {"Alice A.", "alice", 1026}, "6Ab9", {{"L1", "urgent", "red", 3}, {"L2", "later", "gray", -1}}, "c0ffee", "snip",
      4, "document", 1600000000};
}

TEST(ConvertFileInfoToJSon, FullRecordHasExactShapeAndEdgeValues) {
  SyslogCapture syslog;
  Json::Value out;
  ASSERT_EQ(0, ConvertFileInfoToJSon(FullRecord(), out));
  EXPECT_EQ(Text(Parse(R"({"file_id":"812","path":"/docs/plan.odt","nxo_path":"/srv/plyth/alice/docs/plan.odt",
    "display_path":"/home/docs/plan.odt","original_path":"/old/plan.odt","name":"plan.odt","type":"file",
    "parent_id":"811","created_time":4000000001,"access_time":1700000002,"modified_time":1700000003,
    "change_time":1700000004,"size":5000000000,"capabilities":{"can_preview":true,"can_read":true,"can_write":false,
    "can_delete":true,"can_rename":false,"can_comment":true,"can_share":false,"can_encrypt":true,
    "can_organize":false},"version_id":"77","sync_id":77,"max_id":99,"removed":false,"encrypted":true,"starred":true,
    "shared":false,"adv_shared":true,"sync_to_device":false,"shared_with":[{"permission_id":"p1","type":"user",
    "name":"bob","role":"viewer","inherited":true},{"permission_id":"p2","type":"group","name":"staff",
    "role":"editor","inherited":false}],"properties":{"a":1},"app_properties":["x"],
    "owner":{"display_name":"Alice A.","name":"alice","uid":1026},"permanent_link":"6Ab9","labels":[{"label_id":"L1",
    "color":"red","name":"urgent"},{"label_id":"L2","color":"gray","name":"later"}],"hash":"c0ffee",
    "content_snippet":"snip","revisions":4,"content_type":"document",
    "image_metadata":{"time":1600000000}})")), Text(out));
  EXPECT_TRUE(syslog.Lines().empty());

  Tarnova::FileInfo info = FullRecord();
  info.sync_id = std::numeric_limits<uint64_t>::max();
  info.labels.clear();
  info.kind = 2;  // no third kind name
  ASSERT_EQ(0, ConvertFileInfoToJSon(info, out));
  EXPECT_EQ("\"18446744073709551615\"", Text(out["version_id"]));
  EXPECT_EQ("18446744073709551615", Text(out["sync_id"]));
  EXPECT_EQ("[]", Text(out["labels"]));
  EXPECT_EQ("\"\"", Text(out["type"]));
}

TEST(ConvertFileInfoToJSon, UnparsablePropertiesFailWithTheirLogLine) {
  const struct {
    std::string properties, appProperties, log;  // the log line after "<source>:"
  } rows[] = {{"", "{}", "137 Properties cannot be parsed.\n"},
              // Deeper than the reader's stack limit, which it signals by throwing.
              {std::string(2000, '['), "{}", "137 Properties cannot be parsed.\n"},
              {"{\"a\":1}", "{\"b\":", "142 App properties cannot be parsed.\n"}};
  for (const auto& row : rows) {
    Tarnova::FileInfo info = FullRecord();
    info.properties = row.properties;
    info.app_properties = row.appProperties;
    SyslogCapture syslog;
    Json::Value out;
    EXPECT_EQ(-1, ConvertFileInfoToJSon(info, out)) << row.log;
    EXPECT_EQ(syslog.Lines(), (Lines{{3, PLYTH_UTILS_SOURCE ":" + row.log}}));
  }
}

TEST(ConvertRecords, RevisionAndLabel) {
  Tarnova::RevisionInfo revision{"18446744073709551615", 4294967295u, 1700000001, "abc", 1ull << 40, 1026, "alice,bob"};
  Json::Value out;
  ASSERT_EQ(0, ConvertVersionInfoToJSon(revision, out));
  EXPECT_EQ(R"({"created_time":4294967295,"editor_uid":1026,"editors":"alice,bob",)"
            R"("hash":"abc","modified_time":1700000001,"size":1099511627776,)"
            R"("version_id":"18446744073709551615"})", Text(out));
  out = Json::Value();
  ASSERT_EQ(0, ConvertLabelInfoToJSon(Tarnova::LabelInfo{"L7", "urgent", "red", -5}, out));
  EXPECT_EQ(R"({"color":"red","label_id":"L7","name":"urgent","position":-5})", Text(out));
}

}  // namespace
