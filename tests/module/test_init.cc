// Method "init": session facts, the modules' script configuration gathered
// from the web root, the system-log lines of skipped entries, and the
// same-domain-and-port check that guards a web-server-named session.
#include <filesystem>
#include <regex>
#include <sstream>

#include "init.h"
#include "module_testing.h"
#include "shard_api.h"

namespace {

const char kWebRoot[] = "/usr/zant/zantman/";
const char F[] = R"({"date_format":"d/m/Y","time_format":"h:i a"})";


SyslogLine Err(int line, const std::string& text) { return Logged(3, PLYTH_INIT_SOURCE, line, text); }

class InitTest : public LinkTest {
 protected:
  InitTest() {
    root_.MakeDir(std::string(kWebRoot) + "webman/modules");
    root_.MakeDir(std::string(kWebRoot) + "webman/3rdparty");
    root_.WriteFile("/usr/zant/etc/date_time_format", F);
    request_.SetAPI("ZANT.BrindlexPlyth.Shard", 1, "init");
  }

  // Module "a" with its script "app.js", and "path=content;..." files in it,
  // or under the web root for a path starting with "/".
  void Web(const std::string& files) {
    root_.WriteFile(std::string(kWebRoot) + "webman/modules/a/app.js", "");
    std::istringstream in(files);
    for (std::string file; std::getline(in, file, ';');) {
      const size_t eq = file.find('=');
      const std::string path = file[0] == '/' ? file.substr(1, eq - 1) : "webman/modules/a/" + file.substr(0, eq);
      root_.WriteFile(kWebRoot + path, file.substr(eq + 1));
    }
  }

  HandlerRun Run() {
    const std::filesystem::path before = std::filesystem::current_path();
    HandlerRun run = plyth_test::RunHandler(InitFunc, request_);
    EXPECT_EQ(before, std::filesystem::current_path()) << "working directory not restored";
    return run;
  }

  FakeIdentity identity_{1026, 100};
};

struct ConfigRow {
  const char *description, *files, *jsConfig;
  int logLine = 0;  // nothing logged
  const char *logText = "", *action = "";
};

class Config : public InitTest, public ::testing::WithParamInterface<ConfigRow> {};

TEST_P(Config, Gathers) {
  const ConfigRow& row = GetParam();
  Web(row.files);
  request_.SetParam("action", row.action);
  HandlerRun run = Run();
  ASSERT_TRUE(run.response.IsSuccess());
  auto inModule = [](const char* text) { return std::regex_replace(text, std::regex("\\$m"), "webman/modules/a"); };
  EXPECT_EQ(Text(run.response.GetData()["JSConfig"]), inModule(row.jsConfig));
  EXPECT_EQ(run.syslog, row.logLine ? Lines{Err(row.logLine, inModule(row.logText))} : Lines());
}

// "$m" stands for the module directory "webman/modules/a" in the configuration and the log line.
INSTANTIATE_TEST_SUITE_P(Rows, Config, ::testing::Values(
    // Neither a module without configuration nor a plain file in the directory counts.
    ConfigRow{"nothing to gather: null", "/webman/modules/config={}", "null"},
    ConfigRow{"debug prefers it", R"(config={"x.js":{}};config.debug={"app.js":{"A":{}}})",
              R"({"$m/app.js":{"A":{"jsBaseURL":"$m","jsID":"A"}}})", 0, "", "debug"},
    ConfigRow{"otherwise no config.debug", R"(config.debug={"app.js":{"A":{}}})", "null"},
    ConfigRow{"entry with an empty array adds nothing", R"(config={"app.js":[]})", "null"},
    ConfigRow{"class with an empty array, settings overwritten",
              R"(config={"app.js":{"K":[],"L":{"jsBaseURL":"x","jsID":1}}})",
              R"({"$m/app.js":{"K":{"jsBaseURL":"$m","jsID":"K"},"L":{"jsBaseURL":"$m","jsID":"L"}}})"},
    ConfigRow{".url needs no file; modules and packages in one object",
              R"(config={"app.js":{"A":{"t":1}}};/webman/3rdparty/p/config={".url":{"U":{}}})",
              R"({"webman/3rdparty/p/.url":{"U":{"jsBaseURL":"webman/3rdparty/p","jsID":"U"}},)"
              R"("$m/app.js":{"A":{"jsBaseURL":"$m","jsID":"A","t":1}}})"},
    ConfigRow{"no such file", R"(config={"gone.js":{}})", "null", 151, "Skip $m/gone.js: No such file or directory."},
    ConfigRow{"config not an object", "config=[1]", "null", 138, "Skip $m: Config is not an object."},
    ConfigRow{"entry not an object", R"(config={"app.js":1})", "null", 161, "Skip $m/app.js: Config is not an object."},
    ConfigRow{"class not an object", R"(config={"app.js":{"B":1}})", "null", 174, "Skip B: Config is not an object."}));

TEST_F(InitTest, BrokenConfigurationFailsWith117AndNamesThePlainFile) {
  Web(R"(config={"app.js":{}};config.debug={"app.js": {)");
  request_.SetParam("action", "debug");
  HandlerRun run = Run();
  EXPECT_EQ(run.syslog, Lines{Err(215, "webman/modules/a/config: * Line 1, Column 13\n"
                                       "  Missing '}' or object member name\n\n")});
  EXPECT_EQ(Text(run.response.ToResult()), R"({"error":{"code":117},"success":false})");
}

TEST_F(InitTest, MissingDirectoryFailsWith117) {
  for (const char* removed : {"webman/3rdparty", "webman/modules", ""}) {
    root_.Remove(kWebRoot + std::string(removed));
    HandlerRun run = Run();
    EXPECT_EQ(run.response.GetErrorCode(), 117) << removed;
    EXPECT_TRUE(run.syslog.empty());
  }
}

#define IN R"({"ZantToken":"TOK","isLogined":true,"lang":"ger","standalone":true})"
#define GUEST(date, time) \
  R"({"date_format":)" date R"(,"isLogined":false,"lang":"ger","standalone":true,"time_format":)" time "}"
#define OUT GUEST(R"("d/m/Y")", R"("h:i a")")
const char k32[] = "* * * * 32\n";

// Signed in or not; a user named by the web server only when the referer
// shows the appliance's own host and port.
struct SessionRow {
  const char* description;
  Visitor visitor = {SignIn::kWebServer, "bob"};
  // Referer null: unset; relay connections table null: none, "DIR": unreadable; formats null: no file.
  const char *host = "nas:5000", *referer = "http://nas:5000/", *connections = nullptr, *formats = F, *session = OUT;
  // The relay queried with root ids held at line 59; the line-89 failure logged.
  bool relayQueried = true, logged = false;
};

class Session : public InitTest, public ::testing::WithParamInterface<SessionRow> {};

TEST_P(Session, Facts) {
  const SessionRow& row = GetParam();
  if (row.formats != nullptr) root_.WriteFile("/usr/zant/etc/date_time_format", row.formats);
  else root_.Remove("/usr/zant/etc/date_time_format");
  RelayConnections(root_, row.connections);
  request_.SetUILanguage("ger");
  for (const char* name : {"SERVER_ADDR", "SERVER_PORT", "REMOTE_ADDR", "REMOTE_PORT"}) {
    request_.SetServerVar(name, "10.0.0.2");
  }
  request_.SetServerVar("REQUEST_SCHEME", "http");
  request_.SetServerVar("HTTP_HOST", row.host);
  if (row.referer != nullptr) request_.SetServerVar("HTTP_REFERER", row.referer);
  SetVisitor(row.visitor);
  HandlerRun run = Run();
  ASSERT_TRUE(run.response.IsSuccess());
  EXPECT_EQ(Text(run.response.GetData()["Session"]), row.session);
  Lines lines = row.relayQueried ? Switched(PLYTH_INIT_SOURCE, 59) : Lines();
  if (row.logged) lines.push_back(Err(89, "Failed to read date time format from file"));
  EXPECT_EQ(run.syslog, lines);
}

INSTANTIATE_TEST_SUITE_P(Rows, Session, ::testing::ValuesIn(std::vector<SessionRow>{
    {.description = "signed in: token, no formats", .visitor = {SignIn::kAlice}, .session = IN, .relayQueried = false},
    {.description = "no format file", .visitor = {}, .formats = nullptr, .session = GUEST(R"("Y-m-d")", R"("H:i")"),
     .relayQueried = false, .logged = true},
    {.description = "time format missing: null", .visitor = {}, .formats = R"({"date_format":"Y.m.d"})",
     .session = GUEST(R"("Y.m.d")", "null"), .relayQueried = false},
    {.description = "web server user, same host and port", .referer = "https://nas:5000/p", .session = IN},
    {.description = "web server user, other port", .referer = "http://nas:5001/"},
    {.description = "web server user, no referer: no relay query", .referer = nullptr, .relayQueried = false},
    {.description = "web server user, letter case differs", .host = "NAS:5000"},
    {.description = "web server user, relay table unreadable", .connections = "DIR"},
    {.description = "relay type 32: the host is https", .host = "nas", .referer = "https://nas/", .connections = k32,
     .session = IN}}));

}  // namespace
