// UI language: codes, Accept-Language, and the order of the sources.
#include <gtest/gtest.h>

#include "zant_host/language.h"

namespace {

struct CodeRow {
  const char* code;
  const char* expected;
};

class LanguageFromCodeTest : public ::testing::TestWithParam<CodeRow> {};

TEST_P(LanguageFromCodeTest, Maps) {
  EXPECT_EQ(zant_host::LanguageFromCode(GetParam().code), GetParam().expected) << GetParam().code;
}

INSTANTIATE_TEST_SUITE_P(
    HostLanguage, LanguageFromCodeTest,
    ::testing::Values(CodeRow{"en", "enu"}, CodeRow{"en-US", "enu"}, CodeRow{"EN_gb", "enu"},
                      CodeRow{"de", "ger"}, CodeRow{"de-AT", "ger"}, CodeRow{"fr", "fre"},
                      CodeRow{"ja", "jpn"}, CodeRow{"zh-TW", "cht"}, CodeRow{"zh-Hant-HK", "cht"},
                      CodeRow{"zh-HK", "cht"}, CodeRow{"zh", "chs"}, CodeRow{"zh-CN", "chs"},
                      CodeRow{"zh-Hans-SG", "chs"}, CodeRow{"es-419", "spn"}, CodeRow{"it", "ita"},
                      CodeRow{"ko-KR", "krn"}, CodeRow{"nl", "nld"}, CodeRow{"pt", "ptb"},
                      CodeRow{"pt-BR", "ptb"}, CodeRow{"pt-PT", "ptg"}, CodeRow{"ru", "rus"},
                      CodeRow{"sv-SE", "sve"}, CodeRow{"nb", "nor"}, CodeRow{"ger", "ger"},
                      CodeRow{"CHT", "cht"}, CodeRow{" enu ", "enu"}, CodeRow{"xx", ""},
                      CodeRow{"", ""}, CodeRow{"*", ""}, CodeRow{"english", ""},
                      CodeRow{"-", ""}));

struct AcceptRow {
  const char* header;
  const char* expected;
};

class AcceptLanguageTest : public ::testing::TestWithParam<AcceptRow> {};

TEST_P(AcceptLanguageTest, Best) {
  EXPECT_EQ(zant_host::LanguageFromAcceptHeader(GetParam().header), GetParam().expected)
      << GetParam().header;
}

INSTANTIATE_TEST_SUITE_P(
    HostLanguage, AcceptLanguageTest,
    ::testing::Values(AcceptRow{"de-DE,de;q=0.9,en;q=0.8", "ger"},
                      AcceptRow{"en;q=0.5, ja", "jpn"},
                      AcceptRow{"xx, fr;q=0.1", "fre"},
                      AcceptRow{"fr;q=0.8, it;q=0.8", "fre"},
                      AcceptRow{"ko;q=0, ru;q=0.001", "rus"},
                      AcceptRow{"ko;q=0", ""},
                      AcceptRow{"sv;q=2, nl", "nld"},
                      AcceptRow{"sv;q=abc, nl;q=0.3", "nld"},
                      AcceptRow{"es;q=1.000", "spn"},
                      AcceptRow{"*", ""},
                      AcceptRow{"", ""},
                      AcceptRow{",,;;q=,", ""}));

TEST(HostLanguage, ParamThenSessionThenBrowserThenEnglish) {
  using zant_host::ChooseUILanguage;
  EXPECT_EQ(ChooseUILanguage(Json::Value("de"), "jpn", "fr"), "ger");
  EXPECT_EQ(ChooseUILanguage(Json::Value("xx"), "jpn", "fr"), "jpn");
  EXPECT_EQ(ChooseUILanguage(Json::Value(7), "", "fr"), "fre");
  EXPECT_EQ(ChooseUILanguage(Json::Value(), "bogus", "fr"), "fre");
  EXPECT_EQ(ChooseUILanguage(Json::Value(), "", "xx"), "enu");
}

}  // namespace
