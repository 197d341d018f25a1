// The parameter guard: its pattern and rules-file grammar, which values of
// the link parameters pass, and the refusal through the framework before any
// handler runs.
#include <gtest/gtest.h>

#include <regex>

#include "handle_form.h"
#include "harness.h"
#include "zant_host/host.h"
#include "zant_host/param_guard.h"

namespace {

using host_test::HandleForm;

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
      {.name = "reversed range", .pattern = "[a]{3,2}", .error = "the length range ends before it starts"},
  };
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
      {.name = "empty and absent", .query = kShard + "getjs&permanent_link=",
       .answer = Echoed("{\"permanent_link\":\"\"}")},
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
      {.name = "array", .query = kShard + "get&link_id=%5B%22a%22%5D", .answer = kRefused},
      {.name = "any method", .query = kShard + "init&link_id=%3C", .answer = kRefused},
      {.name = "selectors in the body", .query = "",
       .body = "api=ZANT.BrindlexPlyth.Shard&version=1&method=getjs&permanent_link=a%20b", .answer = kRefused},
  };
  for (const Row& row : rows) EXPECT_EQ(HandleForm(row.query, row.body), row.answer) << row.name;
}

const std::string kLogPattern = "\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ zant-webapi\\[\\d+\\]: ";

TEST_F(Guarded, RulesFileDecidesAtStartup) {
  const std::string bad = kShard + "get&link_id=%3C";
  const std::string custom = "api=Other&version=1&method=get&code=12345";
  // file nullptr: no file; logged: the host log's new line (a regular expression).
  struct Case { const char* name; const char* file; std::string bad, custom, logged; };
  const std::string path = root_.Host(zant_host::kParamRulesFile);
  root_.MakeDir("/var/log");
  for (const Case& c : {
           Case{.name = "missing file: built-in rules", .file = nullptr, .bad = kRefused,
                .custom = Echoed("{\"code\":12345}"), .logged = ""},
           Case{.name = "own rules replace the built-in ones", .file = "Other get code [0-9]{4}\n",
                .bad = Echoed("{\"link_id\":\"<\"}"), .custom = kRefused, .logged = ""},
           Case{.name = "empty file: no guard", .file = "", .bad = Echoed("{\"link_id\":\"<\"}"),
                .custom = Echoed("{\"code\":12345}"),
                .logged = kLogPattern + "parameter guard: off \\(" + path + " has no rules\\)\n"},
           Case{.name = "bad line: built-in rules", .file = "Other get code [0-9]{4}\nOther get\n", .bad = kRefused,
                .custom = Echoed("{\"code\":12345}"), .logged = kLogPattern + "error: parameter guard: " + path +
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
