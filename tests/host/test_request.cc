// Request decoding (JSON-or-string values, form fields, bodies, limits,
// server variables) and the choice of the UI language.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "zant/json_util.h"
#include "zant_host/language.h"
#include "zant_host/request_decode.h"

namespace {

using zant_host::CgiVars;
using zant_host::Limits;
using TextPair = std::pair<std::string, std::string>;

class ValueFromText : public ::testing::TestWithParam<TextPair> {};

TEST_P(ValueFromText, IsJsonOrString) {
  EXPECT_EQ(ZANT::JsonToString(zant_host::ValueFromText(GetParam().first)), GetParam().second);
}

// JsonCpp alone would take several of the strings as values.
INSTANTIATE_TEST_SUITE_P(
    HostDecode, ValueFromText,
    ::testing::Values(TextPair{"\"abc\"", "\"abc\""}, TextPair{"abc", "\"abc\""}, TextPair{"12", "12"},
                      TextPair{"0.5e1", "5.0"}, TextPair{" true ", "true"}, TextPair{"null", "null"},
                      TextPair{"[1,{\"a\":\"\\u00e9\"}]", "[1,{\"a\":\"\xc3\xa9\"}]"}, TextPair{"", "\"\""},
                      TextPair{"00123", "\"00123\""}, TextPair{"1.", "\"1.\""}, TextPair{".5", "\".5\""},
                      TextPair{"+1", "\"+1\""}, TextPair{"[1,]", "\"[1,]\""}, TextPair{"'a'", "\"'a'\""},
                      TextPair{"1 2", "\"1 2\""}, TextPair{"NaN", "\"NaN\""}, TextPair{"/*c*/1", "\"/*c*/1\""},
                      TextPair{"\"a\\x\"", "\"\\\"a\\\\x\\\"\""},
                      TextPair{"\"tab\there\"", "\"\\\"tab\\there\\\"\""},
                      TextPair{std::string(300, '[') + std::string(300, ']'),
                               "\"" + std::string(300, '[') + std::string(300, ']') + "\""},
                      TextPair{std::string(200, '[') + std::string(200, ']'),
                               std::string(200, '[') + std::string(200, ']')}));

// The body adds "version=1&method=m&x=b&y=b" after the query; the first of a name counts.
TEST(HostDecode, QuerySelectsTheMethodAndItsParameters) {
  struct Row {
    std::string query;
    int rc = 0;
    const char* api = "A";
    int version = 1;
    const char* params = "";  // of a decoded request
  } rows[] = {
      {.query = "api=A&x=q", .params = "{\"x\":\"q\",\"y\":\"b\"}"},
      {.query = "api=A&x%20y=c+d%2B%3d&&z&=v&w=b=c&",  // 9 fields: the limit
       .params = "{\"\":\"v\",\"w\":\"b=c\",\"x\":\"b\",\"x y\":\"c d+=\",\"y\":\"b\",\"z\":\"\"}"},
      {.query = "api=A&a&b&c&d&e", .rc = 108},
      {.query = "api=A&x=%e2%82%AC&z=%00", .params = "{\"x\":\"\xe2\x82\xac\",\"y\":\"b\",\"z\":\"\\u0000\"}"},
      {.query = "api=A&version=%22007%22", .version = 7, .params = "{\"x\":\"b\",\"y\":\"b\"}"},
      {.query = "api=A&version=-1", .version = -1, .params = "{\"x\":\"b\",\"y\":\"b\"}"},
      {.query = "api=A&x=%G0", .rc = 101},
      {.query = "api=A&x=%a", .rc = 101},
      {.query = "api=null&api=A", .rc = 101},
      {.query = "api=A&version=2147483648", .rc = 101},
      {.query = "api=A&version=abc", .rc = 101},
      {.query = "api=A&method=7", .rc = 101},
  };
  for (const Row& row : rows) {
    ZANT::APIRequest request;
    Limits limits;
    limits.maxFields = 9;
    const CgiVars vars = {{"QUERY_STRING", row.query}, {"HTTP_HOST", "h:1"}, {"HTTP_HOST", "x"}};
    EXPECT_EQ(zant_host::DecodeRequest(vars, "version=1&method=m&x=b&y=b", limits, &request), row.rc) << row.query;
    EXPECT_EQ(request.GetEnv("HTTP_HOST", Json::Value()).asString(), "h:1") << "set in every case";
    if (row.rc != 0) continue;
    EXPECT_EQ(request.GetAPI(), row.api) << row.query;
    EXPECT_EQ(request.GetVersion(), row.version) << row.query;
    EXPECT_EQ(request.GetMethod(), "m") << row.query;
    EXPECT_EQ(ZANT::JsonToString(request.GetParams()), row.params) << row.query;
  }
}

struct BodyRow {
  const char* name;
  CgiVars vars;  // before those of a form POST
  std::string input;
  int rc;
  std::string body;
};

class ReadFormBody : public ::testing::TestWithParam<BodyRow> {};

TEST_P(ReadFormBody, Reads) {
  Limits limits;
  limits.maxBody = 8;
  CgiVars vars = GetParam().vars;
  vars.insert(vars.end(), {{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", "application/x-www-form-urlencoded"}});
  std::istringstream in(GetParam().input);
  // Hands the input over two bytes at a time, as a pipe may.
  auto reader = [&](char* buffer, size_t size) {
    return static_cast<long>(in.read(buffer, std::min<size_t>(size, 2)).gcount());
  };
  std::string body = "stale";
  EXPECT_EQ(zant_host::ReadFormBody(vars, reader, limits, &body), GetParam().rc);
  if (GetParam().rc == 0) {
    EXPECT_EQ(body, GetParam().body);
  }
}

INSTANTIATE_TEST_SUITE_P(
    HostDecode, ReadFormBody,
    ::testing::Values(
        BodyRow{"sized", {{"CONTENT_LENGTH", "5"}}, "a=1&bXYZ", 0, "a=1&b"},
        BodyRow{"any_case_and_blanks",
                {{"REQUEST_METHOD", "post"}, {"CONTENT_TYPE", " application/X-WWW-form-urlencoded ;x"}}, "a=12", 0,
                "a=12"},
        BodyRow{"get_reads_nothing", {{"REQUEST_METHOD", "GET"}}, "a=1", 0, ""},
        BodyRow{"multipart_reads_nothing", {{"CONTENT_TYPE", "multipart/form-data; boundary=x"}}, "a=1", 0, ""},
        BodyRow{"exactly_the_limit", {}, "a=345678", 0, "a=345678"},
        BodyRow{"over_the_limit_unsized", {}, "a=3456789", 108, ""},
        BodyRow{"length_too_large_to_read", {{"CONTENT_LENGTH", "99999999999999999999999"}}, "", 108, ""},
        BodyRow{"length_with_sign", {{"CONTENT_LENGTH", "-1"}}, "", 101, ""},
        BodyRow{"input_ends_early", {{"CONTENT_LENGTH", "6"}}, "a=1", 101, ""}),
    [](const ::testing::TestParamInfo<BodyRow>& info) { return std::string(info.param.name); });

TEST(HostDecode, CookiesLimitsAndServerVariables) {
  ZANT::APIRequest request;
  ASSERT_EQ(zant_host::DecodeRequest({{"HTTP_COOKIE", "a=1; b = x y ;c=\"q\"; =bad; novalue"}}, "", Limits(),
                                     &request), 101);  // no API selected, cookies read all the same
  EXPECT_EQ(request.GetCookies(), (std::map<std::string, std::string>{{"a", "1"}, {"b", "x y"}, {"c", "\"q\""}}));
  Limits limits;
  limits.maxQuery = 4;
  limits.maxCookie = 3;
  EXPECT_EQ(zant_host::DecodeRequest({{"QUERY_STRING", "a=123"}}, "", limits, &request), 108);
  EXPECT_EQ(zant_host::DecodeRequest({{"HTTP_COOKIE", "a=12"}}, "", limits, &request), 108);
  char a[] = "HTTP_HOST=h=1", b[] = "PATH=/bin", c[] = "BROKEN", d[] = "HTTPS=", e[] = "USERNAME=x",
       f[] = "ZANT_ROOT=/", g[] = "HTTP_", h[] = "HOSTNAME=n", i[] = "REWRITE_APP=r", j[] = "HOST=h";
  char* envp[] = {a, b, c, d, e, f, g, h, i, j, nullptr};
  EXPECT_EQ(zant_host::ServerVarsFromEnviron(envp),
            (CgiVars{{"HTTP_HOST", "h=1"}, {"HTTPS", ""}, {"REWRITE_APP", "r"}, {"HOST", "h"}}));
}

class LanguageFromCode : public ::testing::TestWithParam<TextPair> {};

TEST_P(LanguageFromCode, Maps) { EXPECT_EQ(zant_host::LanguageFromCode(GetParam().first), GetParam().second); }

INSTANTIATE_TEST_SUITE_P(
    HostLanguage, LanguageFromCode,
    ::testing::Values(TextPair{"EN_gb", "enu"}, TextPair{"zh-Hant-HK", "cht"}, TextPair{"zh-HK", "cht"},
                      TextPair{"zh-Hans-SG", "chs"}, TextPair{"zh", "chs"}, TextPair{"pt", "ptb"},
                      TextPair{"pt-PT", "ptg"}, TextPair{"CHT", "cht"}, TextPair{" enu ", "enu"}, TextPair{"xx", ""},
                      TextPair{"", ""}, TextPair{"english", ""}));

class LanguageFromAcceptHeader : public ::testing::TestWithParam<TextPair> {};

TEST_P(LanguageFromAcceptHeader, Maps) {
  EXPECT_EQ(zant_host::LanguageFromAcceptHeader(GetParam().first), GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(
    HostLanguage, LanguageFromAcceptHeader,
    ::testing::Values(TextPair{"en;q=0.5, ja", "jpn"}, TextPair{"xx, fr;q=0.1", "fre"},
                      TextPair{"fr;q=0.8, it;q=0.8", "fre"}, TextPair{"ko;q=0, ru;q=0.001", "rus"},
                      TextPair{"sv;q=2, nl", "nld"}, TextPair{"sv;q=abc, nl;q=0.3", "nld"},
                      TextPair{"es;q=1.000", "spn"}, TextPair{"ko;q=0", ""}, TextPair{",,;;q=,", ""}));

TEST(HostLanguage, ParamThenSessionThenBrowserThenEnglish) {
  using zant_host::ChooseUILanguage;
  EXPECT_EQ(ChooseUILanguage(Json::Value("de"), "jpn", "fr"), "ger");
  EXPECT_EQ(ChooseUILanguage(Json::Value("xx"), "jpn", "fr"), "jpn");
  EXPECT_EQ(ChooseUILanguage(Json::Value(7), "", "fr"), "fre");
  EXPECT_EQ(ChooseUILanguage(Json::Value(), "bogus", "fr"), "fre");
  EXPECT_EQ(ChooseUILanguage(Json::Value(), "", "xx"), "enu");
}

}  // namespace
