// The front door of every request: decoding (JSON-or-string values, form
// fields, bodies, limits, server variables), the choice of the UI language,
// and the parameter guard (its pattern and rules-file grammar, which values
// of the link parameters pass, and the refusal through the framework before
// any handler runs).
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <sstream>

#include "handle_form.h"
#include "harness.h"
#include "zant/json_util.h"
#include "zant_host/host.h"
#include "zant_host/language.h"
#include "zant_host/param_guard.h"
#include "zant_host/request_decode.h"

namespace {

using host_test::HandleForm;
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
      {deep300, "\"" + deep300 + "\""}, {deep200, deep200}};
  for (const TextPair& row : rows)
    EXPECT_EQ(ZANT::JsonToString(zant_host::ValueFromText(row.first)), row.second) << row.first.substr(0, 20);
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
      {.query = "api=A&method=7", .rc = 101}};
  for (const Row& row : rows) {
    ZANT::APIRequest request;
    Limits limits;
    limits.maxFields = 9;
    const CgiVars vars = {{"QUERY_STRING", row.query}, {"HTTP_HOST", "h:1"}, {"HTTP_HOST", "x"}};
    EXPECT_EQ(zant_host::DecodeRequest(vars, "version=1&method=m&x=b&y=b", limits, &request), row.rc) << row.query;
    EXPECT_EQ(request.GetEnv("HTTP_HOST", Json::Value()).asString(), "h:1") << "set in every case";
    if (row.rc != 0) continue;
    EXPECT_EQ(request.GetAPI() + " " + std::to_string(request.GetVersion()) + " " + request.GetMethod() + " " +
                  ZANT::JsonToString(request.GetParams()),
              "A " + std::to_string(row.version) + " m " + row.params) << row.query;
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
      {"input ends early", {{"CONTENT_LENGTH", "6"}}, "a=1", 101}};
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
    if (row.rc != 0) continue;
    EXPECT_EQ(body, row.body) << row.name;
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

// A known parameter winning is pinned by the sign-in flow (lang=ja over the session's language).
TEST(HostLanguage, FromCodeAndAcceptHeaderParamThenSessionThenBrowserThenEnglish) {
  const TextPair codes[] = {
      {"EN_gb", "enu"}, {"zh-Hant-HK", "cht"}, {"zh-HK", "cht"}, {"zh-Hans-SG", "chs"}, {"zh", "chs"},
      {"pt", "ptb"},    {"pt-PT", "ptg"},      {"CHT", "cht"},   {" enu ", "enu"},      {"xx", ""},
      {"", ""},         {"english", ""}};
  for (const TextPair& row : codes) EXPECT_EQ(zant_host::LanguageFromCode(row.first), row.second) << row.first;
  const TextPair headers[] = {
      {"en;q=0.5, ja", "jpn"},        {"xx, fr;q=0.1", "fre"},        {"fr;q=0.8, it;q=0.8", "fre"},
      {"ko;q=0, ru;q=0.001", "rus"},  {"sv;q=2, nl", "nld"},          {"sv;q=abc, nl;q=0.3", "nld"},
      {"es;q=1.000", "spn"},          {"ko;q=0", ""},                 {",,;;q=,", ""}};
  for (const TextPair& row : headers)
    EXPECT_EQ(zant_host::LanguageFromAcceptHeader(row.first), row.second) << row.first;
  using zant_host::ChooseUILanguage;
  EXPECT_EQ(ChooseUILanguage(Json::Value("xx"), "jpn", "fr"), "jpn");
  EXPECT_EQ(ChooseUILanguage(Json::Value(7), "", "fr"), "fre");
  EXPECT_EQ(ChooseUILanguage(Json::Value(), "bogus", "fr"), "fre");
  EXPECT_EQ(ChooseUILanguage(Json::Value(), "", "xx"), "enu");
}

TEST(ParamGuard, PatternParsesAndMatches) {
  const std::string kNoRange = "expected a length range {min,max} or {n} after the class";
  const std::string kNoClass = "expected a character class such as [A-Za-z0-9]";
  // error empty: the pattern parses.
  const struct Row { const char* name; std::string pattern, error = "", passes = "", fails = ""; } rows[] = {
      {.name = "ranges and singles", .pattern = "[a-c_]{1,3}", .passes = "a_c", .fails = "d"},
      {.name = "length below range", .pattern = "[a-c]{2,3}", .passes = "ab", .fails = "a"},
      {.name = "length above range", .pattern = "[a-c]{0,3}", .passes = "", .fails = "abca"},
      {.name = "exact length", .pattern = "[0-9]{4}", .passes = "2024", .fails = "202"},
      {.name = "dash first is literal", .pattern = "[-a]{1,9}", .passes = "-a-", .fails = "b"},
      {.name = "dash last is literal", .pattern = "[a-]{1,9}", .passes = "a-", .fails = "_"},
      {.name = "bytes beyond ASCII never pass", .pattern = "[!-~]{0,9}", .passes = "~", .fails = "\xc3\xa9"},
      {.name = "NUL never passes", .pattern = "[a]{0,9}", .passes = "aa", .fails = std::string("a\0", 2)},
      {.name = "no class", .pattern = "a{1,2}", .error = kNoClass},
      {.name = "unclosed class", .pattern = "[a{1,2}", .error = kNoClass},
      {.name = "negated class", .pattern = "[^a]{1,2}",
       .error = "a class lists what is allowed; \"^\" cannot start it"},
      {.name = "reversed class range", .pattern = "[z-a]{1,2}", .error = "bad class member at \"z-a]{1,2}\""},
      {.name = "no range", .pattern = "[a]", .error = kNoRange},
      {.name = "text after range", .pattern = "[a]{1,2}x", .error = kNoRange},
      {.name = "reversed range", .pattern = "[a]{3,2}", .error = "the length range ends before it starts"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    zant_host::ParamPattern pattern;
    std::string error;
    EXPECT_EQ(zant_host::ParseParamPattern(row.pattern, &pattern, &error), row.error.empty());
    EXPECT_EQ(error, row.error);
    if (!row.error.empty()) continue;
    EXPECT_TRUE(pattern.Matches(row.passes)) << row.passes;
    EXPECT_FALSE(pattern.Matches(row.fails)) << row.fails;
  }
}

TEST(ParamGuard, RulesFileGrammar) {
  std::vector<zant_host::ParamRule> rules;
  std::string error;
  // A comment stands on its own line.
  EXPECT_FALSE(zant_host::ParseParamRules("A.B get name [A-Z]{1}  # a note\n", &rules, &error));
  EXPECT_EQ(error, "line 1: expected API METHOD PARAMETER PATTERN");
  ASSERT_TRUE(zant_host::ParseParamRules("# api method parameter pattern\n\n  \t\nA.B * id [a-z]{0,4}\r\n"
                                         "\tA.B  get\tname [A-Z]{1}\n",
                                         &rules, &error));
  ASSERT_EQ(rules.size(), 2u);
  EXPECT_FALSE(zant_host::ParseParamRules("A.B * id [a-z]{0,4}\nA.B * x [a-z]{9,1}\n", &rules, &error));
  EXPECT_EQ(error, "line 2: the length range ends before it starts");
  EXPECT_EQ(rules.size(), 2u) << "left alone on failure";
}

// --- Through the framework ---

const std::string kRefused =
    "Content-Type: application/json; charset=\"UTF-8\"\r\nStatus: 400 Bad Request\r\n\r\n"
    "{\"error\":{\"code\":120},\"success\":false}";
const std::string kShard = "api=ZANT.BrindlexPlyth.Shard&version=1&method=";

// Stands in for the landing's methods: answers what it was given.
void Echo(ZANT::APIRequest* request, ZANT::APIResponse* response) { response->SetSuccess(request->GetParams()); }
int Allow(ZANT::APIRequest*) { return 1; }

std::string Echoed(const std::string& params) {
  return "Content-Type: application/json; charset=\"UTF-8\"\r\n\r\n{\"data\":" + params + ",\"success\":true}";
}

class Guarded : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* method : {"get", "getjs", "init"}) {
      ZANT::APIRunner::Register("ZANT.BrindlexPlyth.Shard", 1, method, Echo, Allow);
    }
    ZANT::APIRunner::Register("Other", 1, "get", Echo, Allow);
  }
  void TearDown() override {
    ZANT::APIRunner::Clear();
    zant_host::UseParamRules(zant_host::BuiltinParamRules());
  }
  plyth_test::ApplianceRoot root_;
};

TEST_F(Guarded, BuiltinRules) {
  const std::string k128(128, 'A');
  const struct Row { const char* name; std::string query, body = "", answer; } rows[] = {
      {.name = "well-formed ids", .query = kShard + "get&sharing_link=%22aB-_9%22&link_id=P1",
       .answer = Echoed("{\"link_id\":\"P1\",\"sharing_link\":\"aB-_9\"}")},
      {.name = "id of 128", .query = kShard + "get&link_id=" + k128,
       .answer = Echoed("{\"link_id\":\"" + k128 + "\"}")},
      {.name = "number by its text", .query = kShard + "get&link_id=123", .answer = Echoed("{\"link_id\":123}")},
      {.name = "null as empty", .query = kShard + "get&link_id=null", .answer = Echoed("{\"link_id\":null}")},
      {.name = "other parameters free", .query = kShard + "get&link_id=P1&x=%22%3C",
       .answer = Echoed("{\"link_id\":\"P1\",\"x\":\"\\\"<\"}")},
      {.name = "other APIs free", .query = "api=Other&version=1&method=get&link_id=%3C",
       .answer = Echoed("{\"link_id\":\"<\"}")},
      {.name = "id of 129", .query = kShard + "get&link_id=" + k128 + "B", .answer = kRefused},
      {.name = "quote in JSON string", .query = kShard + "getjs&permanent_link=%22%5C%22%7D%22", .answer = kRefused},
      {.name = "fraction", .query = kShard + "get&link_id=1.5", .answer = kRefused},
      {.name = "any method", .query = kShard + "init&link_id=%3C", .answer = kRefused},
      {.name = "selectors in the body", .query = "",
       .body = "api=ZANT.BrindlexPlyth.Shard&version=1&method=getjs&permanent_link=a%20b", .answer = kRefused}};
  for (const Row& row : rows) EXPECT_EQ(HandleForm(row.query, row.body), row.answer) << row.name;
}

const std::string kLogPattern = "\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ zant-webapi\\[\\d+\\]: ";

TEST_F(Guarded, RulesFileDecidesAtStartup) {
  const std::string bad = kShard + "get&link_id=%3C", badPassed = Echoed("{\"link_id\":\"<\"}");
  const std::string custom = "api=Other&version=1&method=get&code=12345";
  // file nullptr: no file; bad, custom: the answers to those two; logged: the host
  // log's new line (a regular expression).
  struct Case {
    const char *name, *file;
    std::string bad = kRefused, custom = Echoed(R"({"code":12345})"), logged = "";
  };
  const std::string path = root_.Host(zant_host::kParamRulesFile);
  root_.MakeDir("/var/log");
  for (const Case& c : {
           Case{.name = "missing file: built-in rules", .file = nullptr},
           Case{.name = "own rules replace the built-in ones", .file = "Other get code [0-9]{4}\n", .bad = badPassed,
                .custom = kRefused},
           Case{.name = "empty file: no guard", .file = "", .bad = badPassed,
                .logged = kLogPattern + "parameter guard: off \\(" + path + " has no rules\\)\n"},
           Case{.name = "bad line: built-in rules", .file = "Other get code [0-9]{4}\nOther get\n",
                .logged = kLogPattern + "error: parameter guard: " + path +
                          " line 2: expected API METHOD PARAMETER PATTERN: built-in rules\n"},
       }) {
    SCOPED_TRACE(c.name);
    root_.Remove(zant_host::kParamRulesFile);
    if (c.file != nullptr) root_.WriteFile(zant_host::kParamRulesFile, c.file);
    root_.Remove(zant_host::kHostLogFile);
    zant_host::UseParamRules(zant_host::LoadParamRules());
    EXPECT_EQ(HandleForm(bad), c.bad);
    EXPECT_EQ(HandleForm(custom), c.custom);
    const std::string log = root_.ReadFile(zant_host::kHostLogFile);
    EXPECT_TRUE(c.logged.empty() ? log.empty() : std::regex_match(log, std::regex(c.logged))) << log;
  }
}

}  // namespace
