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
using zant_host::ParamPattern;
using zant_host::ParamRule;

struct PatternRow {
  const char* name;
  std::string pattern;
  std::string error = "";  // empty: the pattern parses
  std::string passes = "";
  std::string fails = "";
};

class Pattern : public ::testing::TestWithParam<PatternRow> {};

TEST_P(Pattern, ParsesAndMatches) {
  const PatternRow& row = GetParam();
  ParamPattern pattern;
  std::string error;
  ASSERT_EQ(zant_host::ParseParamPattern(row.pattern, &pattern, &error), row.error.empty()) << error;
  EXPECT_EQ(error, row.error);
  if (!row.error.empty()) return;
  EXPECT_TRUE(pattern.Matches(row.passes)) << row.passes;
  EXPECT_FALSE(pattern.Matches(row.fails)) << row.fails;
}

const std::string kNoRange = "expected a length range {min,max} or {n} after the class";
const std::string kNoClass = "expected a character class such as [A-Za-z0-9]";

INSTANTIATE_TEST_SUITE_P(
    ParamGuard, Pattern,
    ::testing::Values(
        PatternRow{.name = "ranges_and_singles", .pattern = "[a-c_]{1,3}", .passes = "a_c", .fails = "d"},
        PatternRow{.name = "length_below_range", .pattern = "[a-c]{2,3}", .passes = "ab", .fails = "a"},
        PatternRow{.name = "length_above_range", .pattern = "[a-c]{0,3}", .passes = "", .fails = "abca"},
        PatternRow{.name = "exact_length", .pattern = "[0-9]{4}", .passes = "2024", .fails = "202"},
        PatternRow{.name = "dash_first_is_literal", .pattern = "[-a]{1,9}", .passes = "-a-", .fails = "b"},
        PatternRow{.name = "dash_last_is_literal", .pattern = "[a-]{1,9}", .passes = "a-", .fails = "_"},
        PatternRow{.name = "bytes_beyond_ascii_never_pass", .pattern = "[!-~]{0,9}", .passes = "~",
                   .fails = "\xc3\xa9"},
        PatternRow{.name = "nul_never_passes", .pattern = "[a]{0,9}", .passes = "aa", .fails = std::string("a\0", 2)},
        PatternRow{.name = "no_class", .pattern = "a{1,2}", .error = kNoClass},
        PatternRow{.name = "unclosed_class", .pattern = "[a{1,2}", .error = kNoClass},
        PatternRow{.name = "negated_class", .pattern = "[^a]{1,2}",
                   .error = "a class lists what is allowed; \"^\" cannot start it"},
        PatternRow{.name = "reversed_class_range", .pattern = "[z-a]{1,2}",
                   .error = "bad class member at \"z-a]{1,2}\""},
        PatternRow{.name = "no_range", .pattern = "[a]", .error = kNoRange},
        PatternRow{.name = "text_after_range", .pattern = "[a]{1,2}x", .error = kNoRange},
        PatternRow{.name = "reversed_range", .pattern = "[a]{3,2}", .error = "the length range ends before it starts"}),
    [](const ::testing::TestParamInfo<PatternRow>& info) { return std::string(info.param.name); });

TEST(ParamGuard, RulesFileGrammar) {
  std::vector<ParamRule> rules;
  std::string error;
  // A comment stands on its own line.
  EXPECT_FALSE(zant_host::ParseParamRules("A.B get name [A-Z]{1}  # a note\n", &rules, &error));
  EXPECT_EQ(error, "line 1: expected API METHOD PARAMETER PATTERN");
  ASSERT_TRUE(zant_host::ParseParamRules("# api method parameter pattern\n\n  \t\nA.B * id [a-z]{0,4}\r\n"
                                         "\tA.B  get\tname [A-Z]{1}\n",
                                         &rules, &error));
  ASSERT_EQ(rules.size(), 2u);
  EXPECT_EQ(rules[1].api + "|" + rules[1].method + "|" + rules[1].param, "A.B|get|name");
  EXPECT_TRUE(rules[0].pattern.Matches("abcd"));
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

struct RequestRow {
  const char* name;
  std::string query;
  std::string body = "";
  std::string answer;
};

class GuardedRequest : public Guarded, public ::testing::WithParamInterface<RequestRow> {};

TEST_P(GuardedRequest, BuiltinRules) {
  EXPECT_EQ(HandleForm(GetParam().query, GetParam().body), GetParam().answer);
}

const std::string k128(128, 'A');

INSTANTIATE_TEST_SUITE_P(
    ParamGuard, GuardedRequest,
    ::testing::Values(
        RequestRow{.name = "well_formed_ids", .query = kShard + "get&sharing_link=%22aB-_9%22&link_id=P1",
                   .answer = Echoed("{\"link_id\":\"P1\",\"sharing_link\":\"aB-_9\"}")},
        RequestRow{.name = "empty_and_absent", .query = kShard + "getjs&permanent_link=",
                   .answer = Echoed("{\"permanent_link\":\"\"}")},
        RequestRow{.name = "id_of_128", .query = kShard + "get&link_id=" + k128,
                   .answer = Echoed("{\"link_id\":\"" + k128 + "\"}")},
        RequestRow{.name = "number_by_its_text", .query = kShard + "get&link_id=123",
                   .answer = Echoed("{\"link_id\":123}")},
        RequestRow{.name = "null_as_empty", .query = kShard + "get&link_id=null",
                   .answer = Echoed("{\"link_id\":null}")},
        RequestRow{.name = "other_parameters_free", .query = kShard + "get&link_id=P1&x=%22%3C",
                   .answer = Echoed("{\"link_id\":\"P1\",\"x\":\"\\\"<\"}")},
        RequestRow{.name = "other_apis_free", .query = "api=Other&version=1&method=get&link_id=%3C",
                   .answer = Echoed("{\"link_id\":\"<\"}")},
        RequestRow{.name = "id_of_129", .query = kShard + "get&link_id=" + k128 + "B", .answer = kRefused},
        RequestRow{.name = "quote_in_json_string", .query = kShard + "getjs&permanent_link=%22%5C%22%7D%22",
                   .answer = kRefused},
        RequestRow{.name = "fraction", .query = kShard + "get&link_id=1.5", .answer = kRefused},
        RequestRow{.name = "array", .query = kShard + "get&link_id=%5B%22a%22%5D", .answer = kRefused},
        RequestRow{.name = "any_method", .query = kShard + "init&link_id=%3C", .answer = kRefused},
        RequestRow{.name = "selectors_in_the_body", .query = "",
                   .body = "api=ZANT.BrindlexPlyth.Shard&version=1&method=getjs&permanent_link=a%20b",
                   .answer = kRefused}),
    [](const ::testing::TestParamInfo<RequestRow>& info) { return std::string(info.param.name); });

const std::string kLogPattern = "\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ zant-webapi\\[\\d+\\]: ";

TEST_F(Guarded, RulesFileDecidesAtStartup) {
  const std::string bad = kShard + "get&link_id=%3C";
  const std::string custom = "api=Other&version=1&method=get&code=12345";
  struct Case {
    const char* name;
    const char* file;  // nullptr: no file
    std::string bad, custom;
    std::string logged;  // the host log's new line (a regular expression)
  };
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
