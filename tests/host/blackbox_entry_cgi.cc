// Black-box tests of entry.cgi: the real program, a throw-away appliance
// root (scripts/mkroot --with-fixture plus the test module), exact bytes on
// standard output.
#include <cstdio>
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
  return Env{{"ZANT_ROOT", gRoot}, {"REQUEST_METHOD", "GET"}, {"QUERY_STRING", query}};
}

const std::string kTest = "api=ZANT.HostTest&version=1&method=";
const std::string kJsonHead = "Content-Type: application/json; charset=\"UTF-8\"\r\n\r\n";

std::string Ok(const std::string& data) { return kJsonHead + "{\"data\":" + data + ",\"success\":true}"; }
std::string Error(int code) {
  return kJsonHead + "{\"error\":{\"code\":" + std::to_string(code) + "},\"success\":false}";
}
const std::string kRefused = "Content-Type: application/json; charset=\"UTF-8\"\r\nStatus: 400 Bad Request\r\n\r\n"
                             "{\"error\":{\"code\":120},\"success\":false}";
const std::string kPadHead = kTest + "echo&pad=";
// The "pad" value that makes an echo request of exactly `size` bytes.
std::string Pad(size_t size) { return std::string(size - kPadHead.size(), 'x'); }

const std::string kDemo = "api=ZANT.Demo.Files&version=1&method=get&path=";

// What only the real program shows: the variables and standard input it
// reads, the default limits, output written by the handler itself, and the
// modules and fixture of the root.
TEST(EntryCgi, ExactBytes) {
  // body: a POST of a form body when not empty; extra: replaces variables of the same name.
  const struct Row { const char* name; std::string query, body = ""; Env extra = {}; std::string expected; } rows[] = {
      {.name = "query of 64 KiB", .query = kPadHead + Pad(65536), .expected = Ok("{\"pad\":\"" + Pad(65536) + "\"}")},
      {.name = "query over 64 KiB", .query = kPadHead + Pad(65537), .expected = Error(108)},
      {.name = "body of 1 MiB", .query = "", .body = kPadHead + Pad(1048576),
       .expected = Ok("{\"pad\":\"" + Pad(1048576) + "\"}")},
      {.name = "length over 1 MiB", .query = kTest + "echo", .body = "a=1", .extra = {{"CONTENT_LENGTH", "1048577"}},
       .expected = Error(108)},
      {.name = "check answers 2", .query = kTest + "two", .expected = Error(105)},
      {.name = "no check row", .query = kTest + "nocheck", .expected = Error(105)},
      {.name = "raw cookie line then redirect", .query = kTest + "cookie_redirect",
       .expected = "Set-Cookie: a=b; path=/\r\nStatus: 302 Found\r\nLocation: http://example.test/landing\r\n\r\n"},
      {.name = "raw output", .query = kTest + "raw",
       .expected = "Set-Cookie: raw=1; path=/\r\nContent-Type:text/plain\r\n\r\nABC"},
      {.name = "fixture answer", .query = kDemo + "%22link:P1%22", .expected = Ok("{\"name\":\"report.kdoc\"}")},
      {.name = "fixture params differ", .query = kDemo + "link:P1&x=1", .expected = Error(119)},
      {.name = "fixture user differs", .query = kDemo + "link:P2", .expected = Error(119)}};
  for (const Row& row : rows) {
    Env env = BaseEnv(row.query);
    if (!row.body.empty()) {
      env["REQUEST_METHOD"] = "POST";
      env["CONTENT_TYPE"] = "application/x-www-form-urlencoded";
      env["CONTENT_LENGTH"] = std::to_string(row.body.size());
    }
    for (const auto& var : row.extra) env[var.first] = var.second;
    const CgiRun run = Cgi(env, row.body);
    EXPECT_EQ(run.status, 0) << row.name;
    EXPECT_EQ(run.out, row.expected) << row.name;
  }
}

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

// Each run reads the rules file anew.
TEST(EntryCgi, ParamRulesFileIsReadOnEveryRun) {
  const std::string rules = gRoot + "/usr/zant/etc/param_guard.conf";
  const std::string saved = Slurp(rules);
  std::ofstream(rules) << "ZANT.HostTest echo a [0-9]{1,2}\n";
  EXPECT_EQ(Cgi(BaseEnv(kTest + "echo&a=123")).out, kRefused);
  std::ofstream(rules) << saved;  // the root's own rules, for the tests that follow
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
