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

// JsonCpp alone would take several of the strings as values.
TEST(HostDecode, ValueFromTextIsJsonOrString) {
  const std::string deep300 = std::string(300, '[') + std::string(300, ']');
  const std::string deep200 = std::string(200, '[') + std::string(200, ']');
  const TextPair rows[] = {
      {"\"abc\"", "\"abc\""}, {"abc", "\"abc\""}, {"12", "12"}, {"0.5e1", "5.0"}, {" true ", "true"},
      {"null", "null"}, {"[1,{\"a\":\"\\u00e9\"}]", "[1,{\"a\":\"\xc3\xa9\"}]"}, {"", "\"\""},
      {"00123", "\"00123\""}, {"1.", "\"1.\""}, {".5", "\".5\""}, {"+1", "\"+1\""}, {"[1,]", "\"[1,]\""},
      {"'a'", "\"'a'\""}, {"1 2", "\"1 2\""}, {"NaN", "\"NaN\""}, {"/*c*/1", "\"/*c*/1\""},
      {"\"a\\x\"", "\"\\\"a\\\\x\\\"\""}, {"\"tab\there\"", "\"\\\"tab\\there\\\"\""},
      {deep300, "\"" + deep300 + "\""}, {deep200, deep200},
  };
  for (const TextPair& row : rows) {
    EXPECT_EQ(ZANT::JsonToString(zant_host::ValueFromText(row.first)), row.second) << row.first.substr(0, 20);
  }
}

// The body adds "version=1&method=m&x=b&y=b" after the query; the first of a name counts.
TEST(HostDecode, QuerySelectsTheMethodAndItsParameters) {
  // params: those of a decoded request.
  const struct Row { std::string query; int rc = 0; int version = 1; const char* params = ""; } rows[] = {
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
    EXPECT_EQ(request.GetAPI(), "A") << row.query;
    EXPECT_EQ(request.GetVersion(), row.version) << row.query;
    EXPECT_EQ(request.GetMethod(), "m") << row.query;
    EXPECT_EQ(ZANT::JsonToString(request.GetParams()), row.params) << row.query;
  }
}

TEST(HostDecode, ReadFormBody) {
  // vars: before those of a form POST.
  const struct Row { const char* name; CgiVars vars; std::string input; int rc; std::string body = ""; } rows[] = {
      {"sized", {{"CONTENT_LENGTH", "5"}}, "a=1&bXYZ", 0, "a=1&b"},
      {"any case and blanks",
       {{"REQUEST_METHOD", "post"}, {"CONTENT_TYPE", " application/X-WWW-form-urlencoded ;x"}}, "a=12", 0, "a=12"},
      {"GET reads nothing", {{"REQUEST_METHOD", "GET"}}, "a=1", 0, ""},
      {"multipart reads nothing", {{"CONTENT_TYPE", "multipart/form-data; boundary=x"}}, "a=1", 0, ""},
      {"exactly the limit", {}, "a=345678", 0, "a=345678"},
      {"over the limit unsized", {}, "a=3456789", 108},
      {"length too large to read", {{"CONTENT_LENGTH", "99999999999999999999999"}}, "", 108},
      {"length with sign", {{"CONTENT_LENGTH", "-1"}}, "", 101},
      {"input ends early", {{"CONTENT_LENGTH", "6"}}, "a=1", 101},
  };
  Limits limits;
  limits.maxBody = 8;
  for (const Row& row : rows) {
    CgiVars vars = row.vars;
    vars.insert(vars.end(), {{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", "application/x-www-form-urlencoded"}});
    std::istringstream in(row.input);
    // Hands the input over two bytes at a time, as a pipe may.
    auto reader = [&](char* buffer, size_t size) {
      return static_cast<long>(in.read(buffer, std::min<size_t>(size, 2)).gcount());
    };
    std::string body = "stale";
    EXPECT_EQ(zant_host::ReadFormBody(vars, reader, limits, &body), row.rc) << row.name;
    if (row.rc == 0) {
      EXPECT_EQ(body, row.body) << row.name;
    }
  }
}

TEST(HostDecode, LimitsAndServerVariables) {
  ZANT::APIRequest request;
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

TEST(HostLanguage, FromCodeAndAcceptHeader) {
  const TextPair codes[] = {
      {"EN_gb", "enu"}, {"zh-Hant-HK", "cht"}, {"zh-HK", "cht"}, {"zh-Hans-SG", "chs"}, {"zh", "chs"},
      {"pt", "ptb"},    {"pt-PT", "ptg"},      {"CHT", "cht"},   {" enu ", "enu"},      {"xx", ""},
      {"", ""},         {"english", ""},
  };
  for (const TextPair& row : codes) EXPECT_EQ(zant_host::LanguageFromCode(row.first), row.second) << row.first;
  const TextPair headers[] = {
      {"en;q=0.5, ja", "jpn"},        {"xx, fr;q=0.1", "fre"},        {"fr;q=0.8, it;q=0.8", "fre"},
      {"ko;q=0, ru;q=0.001", "rus"},  {"sv;q=2, nl", "nld"},          {"sv;q=abc, nl;q=0.3", "nld"},
      {"es;q=1.000", "spn"},          {"ko;q=0", ""},                 {",,;;q=,", ""},
  };
  for (const TextPair& row : headers) {
    EXPECT_EQ(zant_host::LanguageFromAcceptHeader(row.first), row.second) << row.first;
  }
}

TEST(HostLanguage, ParamThenSessionThenBrowserThenEnglish) {
  using zant_host::ChooseUILanguage;
  EXPECT_EQ(ChooseUILanguage(Json::Value("de"), "jpn", "fr"), "ger");
  EXPECT_EQ(ChooseUILanguage(Json::Value("xx"), "jpn", "fr"), "jpn");
  EXPECT_EQ(ChooseUILanguage(Json::Value(7), "", "fr"), "fre");
  EXPECT_EQ(ChooseUILanguage(Json::Value(), "bogus", "fr"), "fre");
  EXPECT_EQ(ChooseUILanguage(Json::Value(), "", "xx"), "enu");
}

}  // namespace
