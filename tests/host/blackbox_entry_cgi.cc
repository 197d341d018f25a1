// Black-box tests of entry.cgi: the real program, a throw-away appliance
// root (scripts/mkroot --with-fixture plus the test module), exact bytes on
// standard output.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "blackbox_root.h"

namespace {

using blackbox::Slurp;
using CgiRun = blackbox::Run;
using Env = std::map<std::string, std::string>;

std::string gRoot;

// The root has the test module and a broken one beside the real modules.
class RootEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    gRoot = blackbox::MakeRoot("host-blackbox", HOST_MKROOT,
                               std::string("--with-fixture --stage '") + HOST_STAGE_DIR + "'");
    const std::string copy = std::string("cp '") + HOST_TESTMOD + "' '" + gRoot + "/usr/zant/lib/webapi/'";
    if (blackbox::RunCommand(copy, gRoot).status != 0) throw std::runtime_error(copy);
    std::ofstream(gRoot + "/usr/zant/lib/webapi/ZANT.Broken.so") << "not a library";
    std::ofstream(gRoot + "/usr/zant/etc/fixture/answers.json") << R"({"answers": [
      {"api": "ZANT.Demo.Files", "version": 1, "method": "get", "params": {"path": "link:P1"},
       "result": {"success": true, "data": {"name": "report.kdoc"}}},
      {"api": "ZANT.Demo.Files", "version": 1, "method": "get", "params": {"path": "link:P2"},
       "user": "alice", "result": {"success": false, "error": {"code": 1002}}}]})";
  }
  void TearDown() override { blackbox::RemoveRoot(gRoot, "HOST_KEEP_ROOT"); }
};
const ::testing::Environment* const kEnvironment = ::testing::AddGlobalTestEnvironment(new RootEnvironment);

std::string Quote(const std::string& text) { return "'" + std::regex_replace(text, std::regex("'"), "'\\''") + "'"; }

// Runs entry.cgi with exactly `env` and `body` on standard input.
CgiRun Cgi(const Env& env, const std::string& body = "") {
  std::ofstream(gRoot + "/cgi.in", std::ios::binary) << body;
  std::string command = "env -i";
  for (const auto& var : env) command += " " + Quote(var.first + "=" + var.second);
  return blackbox::RunCommand(command + " " + gRoot + "/usr/zant/zantman/webapi/entry.cgi <" + gRoot + "/cgi.in",
                              gRoot);
}

Env BaseEnv(const std::string& query) {
  return Env{{"ZANT_ROOT", gRoot},        {"PATH", "/usr/bin:/bin"},         {"GATEWAY_INTERFACE", "CGI/1.1"},
             {"REQUEST_METHOD", "GET"},   {"SERVER_NAME", "nas.test"},       {"SERVER_PORT", "5000"},
             {"QUERY_STRING", query},     {"HTTP_HOST", "nas.test:5000"},    {"REQUEST_URI", "/webapi/entry.cgi"}};
}

const std::string kTest = "api=ZANT.HostTest&version=1&method=";
const std::string kJsonHead = "Content-Type: application/json; charset=\"UTF-8\"\r\n\r\n";

std::string Ok(const std::string& data) { return kJsonHead + "{\"data\":" + data + ",\"success\":true}"; }
std::string Error(int code) {
  return kJsonHead + "{\"error\":{\"code\":" + std::to_string(code) + "},\"success\":false}";
}
const std::string kRefused = "Content-Type: application/json; charset=\"UTF-8\"\r\nStatus: 400 Bad Request\r\n\r\n"
                             "{\"error\":{\"code\":120},\"success\":false}";
const std::string kShard = "api=ZANT.BrindlexPlyth.Shard&version=1&method=";
const std::string kPadHead = kTest + "echo&pad=";
// The "pad" value that makes an echo request of exactly `size` bytes.
std::string Pad(size_t size) { return std::string(size - kPadHead.size(), 'x'); }

struct Row {
  const char* name;
  std::string query;
  const char* body = nullptr;  // nullptr: a GET; else a POST of a form body
  Env extra = {};              // replaces variables of the same name
  std::string expected;
};

class Answers : public ::testing::TestWithParam<Row> {};

TEST_P(Answers, ExactBytes) {
  const Row& row = GetParam();
  Env env = BaseEnv(row.query);
  if (row.body != nullptr) {
    env["REQUEST_METHOD"] = "POST";
    env["CONTENT_TYPE"] = "application/x-www-form-urlencoded";
    env["CONTENT_LENGTH"] = std::to_string(strlen(row.body));
  }
  for (const auto& var : row.extra) env[var.first] = var.second;
  const CgiRun run = Cgi(env, row.body != nullptr ? row.body : "");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, row.expected);
}

const std::string kOverMiB(1048577, 'a');
const std::string kBodyOfMiB = kPadHead + Pad(1048576);
const std::string kDemo = "api=ZANT.Demo.Files&version=1&method=get&path=";

INSTANTIATE_TEST_SUITE_P(
    EntryCgi, Answers,
    ::testing::Values(
        Row{.name = "decoding",
            .query = kTest + "echo&a=%22abc%22&b=abc&c=1&d=%7B%22x%22%3A%5B1%2Ctrue%5D%7D&e=a+b%20c"
                             "&f=00123&g=&h&i=null&j=%5B1%2C%5D&l=-0.5e3&a=2&&",
            .expected = Ok(
                "{\"a\":\"abc\",\"b\":\"abc\",\"c\":1,\"d\":{\"x\":[1,true]},\"e\":\"a b c\",\"f\":\"00123\","
                "\"g\":\"\",\"h\":\"\",\"i\":null,\"j\":\"[1,]\",\"l\":-500.0}")},
        Row{.name = "selectors_as_json_strings", .query = "api=%22ZANT.HostTest%22&version=%221%22&method=%22echo%22",
            .expected = Ok("{}")},
        Row{.name = "second_version", .query = "api=ZANT.HostTest&version=2&method=echo",
            .expected = Ok("\"version 2\"")},
        Row{.name = "query_before_body", .query = kTest + "echo&a=query", .body = "b=%22x%22&a=body",
            .extra = {{"CONTENT_TYPE", "Application/X-WWW-Form-Urlencoded; charset=UTF-8"}},
            .expected = Ok("{\"a\":\"query\",\"b\":\"x\"}")},
        Row{.name = "selectors_in_unsized_body", .query = "",
            .body = "api=ZANT.HostTest&version=1&method=echo&x=%5B%5D",
            .extra = {{"CONTENT_LENGTH", ""}}, .expected = Ok("{\"x\":[]}")},
        Row{.name = "binary_body", .query = kTest + "echo", .body = "a=\x01\x02",
            .expected = Ok("{\"a\":\"\\u0001\\u0002\"}")},
        Row{.name = "binary_cookies", .query = kTest + "echo",
            .extra = {{"HTTP_COOKIE", "\x01\x7f\xfe=1; a=\xff\xfe\x80; ;;=; b=\x1b[0m; \xc3\xa9=2"}},
            .expected = Ok("{}")},
        Row{.name = "query_of_64_kib", .query = kPadHead + Pad(65536),
            .expected = Ok("{\"pad\":\"" + Pad(65536) + "\"}")},
        Row{.name = "query_over_64_kib", .query = kPadHead + Pad(65537), .expected = Error(108)},
        Row{.name = "cookie_over_64_kib", .query = kTest + "echo",
            .extra = {{"HTTP_COOKIE", "a=" + std::string(65535, 'c')}}, .expected = Error(108)},
        Row{.name = "body_of_1_mib", .query = "", .body = kBodyOfMiB.c_str(),
            .expected = Ok("{\"pad\":\"" + Pad(1048576) + "\"}")},
        Row{.name = "length_over_1_mib", .query = kTest + "echo", .body = "", .extra = {{"CONTENT_LENGTH", "1048577"}},
            .expected = Error(108)},
        Row{.name = "body_over_1_mib_unsized", .query = kTest + "echo", .body = kOverMiB.c_str(),
            .extra = {{"CONTENT_LENGTH", ""}}, .expected = Error(108)},
        Row{.name = "length_not_a_number", .query = kTest + "echo", .body = "a=1", .extra = {{"CONTENT_LENGTH", "3a"}},
            .expected = Error(101)},
        Row{.name = "bad_escape_in_query", .query = kTest + "echo&a=%zz", .expected = Error(101)},
        Row{.name = "bad_escape_in_body", .query = kTest + "echo", .body = "a=%%", .expected = Error(101)},
        Row{.name = "empty_request", .query = "", .expected = Error(101)},
        Row{.name = "unknown_api", .query = "api=ZANT.Nope&version=1&method=echo", .expected = Error(102)},
        Row{.name = "unknown_method", .query = kTest + "nope", .expected = Error(103)},
        Row{.name = "unsupported_version", .query = "api=ZANT.HostTest&version=3&method=echo", .expected = Error(104)},
        Row{.name = "check_answers_0", .query = kTest + "denied", .expected = Error(105)},
        Row{.name = "check_answers_2", .query = kTest + "two", .expected = Error(105)},
        Row{.name = "no_check_row", .query = kTest + "nocheck", .expected = Error(105)},
        Row{.name = "handler_error", .query = kTest + "error", .expected = Error(117)},
        Row{.name = "handler_without_answer", .query = kTest + "noanswer", .expected = Error(100)},
        Row{.name = "redirect", .query = kTest + "redirect",
            .expected = "Status: 302 Found\r\nLocation: http://example.test/next?a=1\r\n\r\n"},
        Row{.name = "raw_cookie_line_then_redirect", .query = kTest + "cookie_redirect",
            .expected =
                "Set-Cookie: a=b; path=/\r\nStatus: 302 Found\r\nLocation: http://example.test/landing\r\n\r\n"},
        Row{.name = "raw_output", .query = kTest + "raw",
            .expected = "Set-Cookie: raw=1; path=/\r\nContent-Type:text/plain\r\n\r\nABC"},
        Row{.name = "script_breaking_link_refused",
            .query = kShard + "getjs&permanent_link=%22%7D%3Bdocument.title%3D%22X%22%3Bif(0)%7B%22",
            .expected = kRefused},
        Row{.name = "quote_in_posted_link_refused", .query = "",
            .body = "api=ZANT.BrindlexPlyth.Shard&version=1&method=get&link_id=a%22b", .expected = kRefused},
        Row{.name = "fixture_answer", .query = kDemo + "%22link:P1%22", .expected = Ok("{\"name\":\"report.kdoc\"}")},
        Row{.name = "fixture_params_differ", .query = kDemo + "link:P1&x=1", .expected = Error(119)},
        Row{.name = "fixture_user_differs", .query = kDemo + "link:P2", .expected = Error(119)}),
    [](const ::testing::TestParamInfo<Row>& info) { return std::string(info.param.name); });

TEST(EntryCgi, FixtureLogsEveryCall) {
  const std::string log = gRoot + "/var/log/zant-fixture.log";
  const size_t before = Slurp(log).size();
  Cgi(BaseEnv(kDemo + "%22link:P9%22&n=1"));
  EXPECT_EQ(Slurp(log).substr(before),
            "{\"api\":\"ZANT.Demo.Files\",\"method\":\"get\",\"params\":{\"n\":1,\"path\":\"link:P9\"},"
            "\"user\":\"\",\"version\":1}\n");
}

TEST(EntryCgi, BrokenModulesAreLoggedAndSkipped) {
  const CgiRun run = Cgi(BaseEnv(kTest + "echo&a=1"));
  EXPECT_EQ(run.out, Ok("{\"a\":1}"));
  const std::regex kLine("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ zant-webapi\\[\\d+\\]: error: "
                         "cannot load module " + gRoot + "/usr/zant/lib/webapi/ZANT\\.Broken\\.so: .*\n");
  std::smatch line;
  EXPECT_TRUE(std::regex_search(run.err, line, kLine)) << run.err;
  EXPECT_NE(Slurp(gRoot + "/var/log/zant-webapi.log").find(line.str()), std::string::npos);
  EXPECT_NE(run.err.find("error: module ZANT.HostTest.so: ZANT.HostTest 1 nocheck has no check function "
                         "and is refused\n"), std::string::npos);
}

// Each run reads the rules file anew; an empty file switches the guard off.
TEST(EntryCgi, ParamRulesFileIsReadOnEveryRun) {
  const std::string rules = gRoot + "/usr/zant/etc/param_guard.conf";
  const std::string saved = Slurp(rules);
  std::ofstream(rules) << "ZANT.HostTest echo a [0-9]{1,2}\n";
  EXPECT_EQ(Cgi(BaseEnv(kTest + "echo&a=12")).out, Ok("{\"a\":12}"));
  EXPECT_EQ(Cgi(BaseEnv(kTest + "echo&a=123")).out, kRefused);
  EXPECT_EQ(Cgi(BaseEnv(kTest + "echo&b=123")).out, Ok("{\"b\":123}"));
  std::ofstream(rules) << "";
  const CgiRun unguarded = Cgi(BaseEnv(kShard + "getjs&permanent_link=a%22b"));
  EXPECT_NE(unguarded.out.find("a\"b"), std::string::npos) << "the module answered: " << unguarded.out;
  if (saved.empty()) {
    std::remove(rules.c_str());
  } else {
    std::ofstream(rules) << saved;
  }
}

TEST(EntryCgi, RootFollowsTheProgramsPlaceAndNoEnvironmentStillAnswers) {
  Env env = BaseEnv(kTest + "echo&a=2");
  env.erase("ZANT_ROOT");
  EXPECT_EQ(Cgi(env).out, Ok("{\"a\":2}"));
  const CgiRun bare = Cgi(Env{});
  EXPECT_EQ(bare.status, 0);
  EXPECT_EQ(bare.out, Error(101));
}

}  // namespace
