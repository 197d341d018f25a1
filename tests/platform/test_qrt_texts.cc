// UI texts files of one language directory.
#include <gtest/gtest.h>

#include <ostream>

#include <json/json.h>

#include "harness.h"
#include "zant/qrt.h"

namespace {

const char kDir[] = "/var/packages/X/target/texts/enu";

Json::Value Parse(const std::string& text) {
  Json::Value value;
  Json::Reader().parse(text, value);
  return value;
}

struct TextsCase {
  const char* description;
  const char* content;
  const char* expectedJson;
};
void PrintTo(const TextsCase& c, std::ostream* os) { *os << c.description; }

class TextsTable : public ::testing::TestWithParam<TextsCase> {
 protected:
  plyth_test::ApplianceRoot root_;
};

TEST_P(TextsTable, Parses) {
  const TextsCase& c = GetParam();
  root_.WriteFile(std::string(kDir) + "/strings", c.content);
  Json::Value texts = ZANT::QRT::LocalizedStringParser::ParseTexts(kDir);
  EXPECT_EQ(Parse(c.expectedJson), texts) << texts.toStyledString();
}

INSTANTIATE_TEST_SUITE_P(
    Files, TextsTable,
    ::testing::Values(
        TextsCase{"sections", "[common]\nok = \"OK\"\ncancel=\"Cancel\"\n[error]\nnot_found = \"Not found\"\n",
                  R"({"common":{"ok":"OK","cancel":"Cancel"},"error":{"not_found":"Not found"}})"},
        TextsCase{"escapes", "[s]\nk = \"say \\\"hi\\\"\\\\\\n\\tend\"\n",
                  R"({"s":{"k":"say \"hi\"\\\n\tend"}})"},
        TextsCase{"unknown escape kept", "[s]\nk = \"C:\\dir\"\n", R"({"s":{"k":"C:\\dir"}})"},
        TextsCase{"comments and blank lines", "# note\n\n; other\n[s]\n  # k = \"x\"\nk = \"v\"\n",
                  R"({"s":{"k":"v"}})"},
        TextsCase{"equals and hash inside text", "[s]\nk = \"a = b # c\"\n", R"({"s":{"k":"a = b # c"}})"},
        TextsCase{"empty text and empty section", "[s]\nk = \"\"\n[t]\n", R"({"s":{"k":""},"t":{}})"},
        TextsCase{"sections reopened merge, later key wins",
                  "[s]\na = \"1\"\nb = \"2\"\n[t]\n[s]\na = \"3\"\n",
                  R"({"s":{"a":"3","b":"2"},"t":{}})"},
        TextsCase{"text before any section skipped", "k = \"v\"\n[s]\n", R"({"s":{}})"},
        TextsCase{"unquoted text skipped", "[s]\nk = v\nj = \"w\"\n", R"({"s":{"j":"w"}})"},
        TextsCase{"unterminated quote skipped", "[s]\nk = \"v\nj = \"w\"\n", R"({"s":{"j":"w"}})"},
        TextsCase{"text after quote skipped", "[s]\nk = \"v\" x\nj = \"w\"  \n", R"({"s":{"j":"w"}})"},
        TextsCase{"no equals or no key skipped", "[s]\nk \"v\"\n = \"w\"\na b = \"x\"\n", R"({"s":{}})"},
        TextsCase{"malformed section closes the open one", "[s]\na = \"1\"\n[]\nb = \"2\"\n[t] x\nc = \"3\"\n",
                  R"({"s":{"a":"1"}})"},
        TextsCase{"CR LF and byte-order mark", "\xEF\xBB\xBF[s]\r\nk = \"v\"\r\n", R"({"s":{"k":"v"}})"},
        TextsCase{"UTF-8 text as it stands", "[s]\nk = \"Gr\xC3\xBC\xC3\x9F\x65\"\n",
                  "{\"s\":{\"k\":\"Gr\xC3\xBC\xC3\x9F\x65\"}}"}));

class TextsFiles : public ::testing::Test {
 protected:
  plyth_test::ApplianceRoot root_;
};

TEST_F(TextsFiles, MissingDirectoryOrFileIsEmptyObject) {
  Json::Value texts = ZANT::QRT::LocalizedStringParser::ParseTexts("/no/such/dir");
  EXPECT_TRUE(texts.isObject());
  EXPECT_EQ(0u, texts.size());
  root_.MakeDir(kDir);
  EXPECT_EQ(Json::Value(Json::objectValue), ZANT::QRT::LocalizedStringParser::ParseTexts(kDir));
}

TEST_F(TextsFiles, TrailingSlashAccepted) {
  root_.WriteFile(std::string(kDir) + "/strings", "[s]\nk = \"v\"\n");
  EXPECT_EQ(Parse(R"({"s":{"k":"v"}})"),
            ZANT::QRT::LocalizedStringParser::ParseTexts(std::string(kDir) + "/"));
}

}  // namespace
