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
  // The record read; Member(record, "k") as JSON, MemberText and MemberFlag.
  const struct {
    const char *object, *member = "null", *text = "";
    bool flag = false;
  } rows[] = {{.object = R"({"k":true})", .member = "true", .text = "true", .flag = true},
              {.object = R"({"j":"v"})"}, {.object = R"(["k"])"}};
  for (const auto& row : rows) {
    const Json::Value object = Parse(row.object);
    EXPECT_EQ(Parse(row.member), Member(object, "k")) << row.object;
    EXPECT_EQ(row.text, MemberText(object, "k")) << row.object;
    EXPECT_EQ(row.flag, MemberFlag(object, "k")) << row.object;
  }
}

}  // namespace
