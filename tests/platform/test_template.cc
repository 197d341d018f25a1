// Page templates: {{KEY}} placeholders.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "temp_root.h"
#include "zant/webutils.h"

namespace {

Json::Value Values() {
  Json::Value values(Json::objectValue);
  values["TITLE"] = "A <b> & \"c\"";
  values["JS_TAGS"] = "<script src=\"x.js\"></script>";
  values["EMPTY"] = "";
  values["NUM"] = 5;
  values["OBJ"]["a"] = "b";
  values["NUL"] = std::string("a\0b", 3);
  values["LOOP"] = "{{TITLE}}";
  return values;
}

struct TemplateCase {
  const char* description;
  std::string text;
  std::string expected;
};

class ApplyValuesTest : public ::testing::TestWithParam<TemplateCase> {};

TEST_P(ApplyValuesTest, Fills) {
  WebUtils::Template tpl;
  tpl.SetText(GetParam().text);
  EXPECT_EQ(GetParam().expected, tpl.ApplyValues(Values())) << GetParam().description;
}

INSTANTIATE_TEST_SUITE_P(
    Table, ApplyValuesTest,
    ::testing::Values(
        TemplateCase{"no placeholder", "<html></html>", "<html></html>"},
        TemplateCase{"value inserted as it stands", "<title>{{TITLE}}</title>",
                     "<title>A <b> & \"c\"</title>"},
        TemplateCase{"repeated and adjacent", "{{EMPTY}}{{JS_TAGS}}{{JS_TAGS}}",
                     "<script src=\"x.js\"></script><script src=\"x.js\"></script>"},
        TemplateCase{"missing key is empty", "[{{MISSING}}]", "[]"},
        TemplateCase{"number member is empty", "[{{NUM}}]", "[]"},
        TemplateCase{"object member is empty", "[{{OBJ}}]", "[]"},
        TemplateCase{"keys are case-sensitive", "[{{title}}]", "[]"},
        TemplateCase{"NUL bytes of a value are kept", "[{{NUL}}]", std::string("[a\0b]", 5)},
        TemplateCase{"inserted text is not filled again", "{{LOOP}}", "{{TITLE}}"},
        TemplateCase{"unclosed placeholder kept", "a {{TITLE b", "a {{TITLE b"},
        TemplateCase{"lone braces kept", "{{ }} {{}} {x} }}", "{{ }} {{}} {x} }}"},
        TemplateCase{"blanks make no placeholder", "{{ TITLE }}", "{{ TITLE }}"},
        TemplateCase{"extra braces around a placeholder stay", "{{{EMPTY}}}", "{}"},
        TemplateCase{"script braces untouched", "function f(){if(a){{b();}}}",
                     "function f(){if(a){{b();}}}"},
        TemplateCase{"placeholder at the very end", "x{{EMPTY}}", "x"},
        TemplateCase{"dangling open braces at the end", "x{{", "x{{"}),
    [](const ::testing::TestParamInfo<TemplateCase>& info) { return "row" + std::to_string(info.index); });

TEST(TemplateTest, ValuesThatAreNoObjectEmptyEveryPlaceholder) {
  WebUtils::Template tpl;
  tpl.SetText("a{{TITLE}}b");
  EXPECT_EQ("ab", tpl.ApplyValues(Json::Value("TITLE")));
  EXPECT_EQ("ab", tpl.ApplyValues(Json::Value()));
}

TEST(TemplateTest, ReadsFilesAndStreamsWhole) {
  platform_test::TempRoot root;
  const std::string body = std::string("<p>{{TITLE}}</p>\n\0tail", 23);
  root.WriteFile("/t.html", body);
  WebUtils::Template tpl;
  ASSERT_TRUE(tpl.ReadFromFile(root.Host("/t.html")));
  Json::Value values;
  values["TITLE"] = "T";
  EXPECT_EQ(std::string("<p>T</p>\n\0tail", 15), tpl.ApplyValues(values));

  FILE* stream = fopen(root.Host("/t.html").c_str(), "r");
  ASSERT_NE(nullptr, stream);
  WebUtils::Template fromStream;
  EXPECT_TRUE(fromStream.ReadFromStream(stream));
  fclose(stream);
  EXPECT_EQ(tpl.ApplyValues(values), fromStream.ApplyValues(values));
}

TEST(TemplateTest, MissingFileKeepsTheOldText) {
  WebUtils::Template tpl;
  tpl.SetText("old");
  EXPECT_FALSE(tpl.ReadFromFile("/nonexistent/dir/t.html"));
  EXPECT_FALSE(tpl.ReadFromStream(nullptr));
  EXPECT_EQ("old", tpl.ApplyValues(Json::Value()));
}

}  // namespace
