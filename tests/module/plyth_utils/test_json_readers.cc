// The readers every handler uses on parameters and records: a value of the
// wrong kind reads as empty, never throws. Server variables read the same
// way, as the handler tests show.
#include "json_readers.h"
#include "../module_testing.h"

namespace {

TEST(JsonReaders, TextAndFlagOfAValue) {
  const struct {
    const char *json, *text;  // the value read; JsonText
    bool flag = false;        // JsonFlag
  } rows[] = {{.json = R"("true")", .text = "true"}, {.json = "null", .text = ""},
              {.json = "true", .text = "true", .flag = true}, {.json = "false", .text = "false"},
              {.json = "-7", .text = "-7", .flag = true}, {.json = "0", .text = "0"},
              {.json = "0.5", .text = "0.5", .flag = true}, {.json = R"({"a":1})", .text = ""}};
  for (const auto& row : rows) {
    EXPECT_EQ(row.text, JsonText(Parse(row.json))) << row.json;
    EXPECT_EQ(row.flag, JsonFlag(Parse(row.json))) << row.json;
  }
}

TEST(JsonReaders, MemberOfARecord) {
  const struct {
    const char* object;  // the record read
    const char* member = "null";  // Member(record, "k") as JSON
    const char* text = "";        // MemberText
    bool flag = false;            // MemberFlag, and Succeeded with the member named "success"
  } rows[] = {{.object = R"({"k":true})", .member = "true", .text = "true", .flag = true},
              {.object = R"({"j":"v"})"}, {.object = R"(["k"])"}};
  for (const auto& row : rows) {
    const Json::Value object = Parse(row.object);
    EXPECT_EQ(Parse(row.member), Member(object, "k")) << row.object;
    EXPECT_EQ(row.text, MemberText(object, "k")) << row.object;
    EXPECT_EQ(row.flag, MemberFlag(object, "k")) << row.object;
    Json::Value result = object;
    if (result.isObject() && result.isMember("k")) result["success"] = result["k"];
    EXPECT_EQ(row.flag, Succeeded(result)) << row.object;
  }
}

}  // namespace
