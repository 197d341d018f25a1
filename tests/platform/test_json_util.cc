// Compact JSON text and JSON files.
#include <gtest/gtest.h>

#include <string>

#include "temp_root.h"
#include "zant/json_util.h"

namespace {

Json::Value Parse(const std::string& text) {
  Json::Value value;
  Json::Reader reader;
  EXPECT_TRUE(reader.parse(text, value)) << text;
  return value;
}

struct ToStringCase {
  const char* description;
  Json::Value value;
  std::string expected;
};

class JsonToStringTest : public ::testing::TestWithParam<ToStringCase> {};

TEST_P(JsonToStringTest, Compact) {
  EXPECT_EQ(GetParam().expected, ZANT::JsonToString(GetParam().value)) << GetParam().description;
}

INSTANTIATE_TEST_SUITE_P(
    Table, JsonToStringTest,
    ::testing::Values(
        ToStringCase{"null", Json::Value(), "null"},
        ToStringCase{"empty object", Json::Value(Json::objectValue), "{}"},
        ToStringCase{"members sorted, no blanks",
                     Parse(R"({ "path" : "link:AbC", "a" : [ 1, true, null ] })"),
                     R"({"a":[1,true,null],"path":"link:AbC"})"},
        ToStringCase{"UTF-8 unescaped", Json::Value("\xe6\x97\xa5\xc3\xa9"), "\"\xe6\x97\xa5\xc3\xa9\""},
        ToStringCase{"quotes, backslash, line feed, control",
                     Json::Value("a\"b\\c\nd\x01"), "\"a\\\"b\\\\c\\nd\\u0001\""},
        ToStringCase{"slash not escaped", Json::Value("</script>"), "\"</script>\""},
        ToStringCase{"integers and reals", Parse(R"({"i":-3,"u":4294967296,"r":1.5})"),
                     R"({"i":-3,"r":1.5,"u":4294967296})"}),
    [](const ::testing::TestParamInfo<ToStringCase>& info) { return "row" + std::to_string(info.index); });

TEST(JsonFromFileTest, ReadsValidFilesOnly) {
  platform_test::TempRoot root;
  root.WriteFile("/ok.json", "{\"date_format\":\"Y-m-d\",\"time_format\":\"H:i\"}\n");
  root.WriteFile("/bad.json", "{\"date_format\":");
  root.WriteFile("/empty.json", "");

  Json::Value out("untouched");
  EXPECT_FALSE(ZANT::JsonFromFile(root.Host("/bad.json"), out));
  EXPECT_EQ(Json::Value("untouched"), out);
  EXPECT_FALSE(ZANT::JsonFromFile(root.Host("/empty.json"), out));
  EXPECT_FALSE(ZANT::JsonFromFile(root.Host("/missing.json"), out));
  EXPECT_FALSE(ZANT::JsonFromFile(root.Path(), out)) << "a directory";
  EXPECT_EQ(Json::Value("untouched"), out);

  ASSERT_TRUE(ZANT::JsonFromFile(root.Host("/ok.json"), out));
  EXPECT_EQ("Y-m-d", out["date_format"].asString());
  EXPECT_FALSE(ZANT::JsonFromFile("/ok.json", out)) << "the path is not placed under the root";
}

}  // namespace
