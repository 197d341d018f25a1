// Method "init": session facts, the modules' script configuration gathered
// from the web root, the system-log lines of skipped entries, and the
// same-domain-and-port check that guards a web-server-named session.
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "harness.h"
#include "init.h"
#include "shard_api.h"
#include "zant/json_util.h"

namespace {

using plyth_test::HandlerRun;
using plyth_test::SyslogLine;

const char kWebRoot[] = "/usr/zant/zantman";
const char kSource[] = "server/ui-web/webapi/plyth/shard/init";

std::string Cwd() {
  char buffer[PATH_MAX];
  return getcwd(buffer, sizeof(buffer)) != nullptr ? buffer : "";
}

SyslogLine Err(int line, const std::string& rest) {
  return SyslogLine{3, std::string(kSource) + ":" + std::to_string(line) + " " + rest};
}

class InitTest : public ::testing::Test {
 protected:
  InitTest() : identity_(1026, 100) {
    root_.MakeDir(std::string(kWebRoot) + "/webman/modules");
    root_.MakeDir(std::string(kWebRoot) + "/webman/3rdparty");
    root_.WriteFile("/usr/zant/etc/date_time_format",
                    "{\"date_format\":\"d/m/Y\",\"time_format\":\"h:i a\"}");
    root_.WriteFile("/usr/zant/etc/users",
                    "bob:1030:100:Bob:/home/bob::\ncarol:1031:100:Carol:/home/carol:disabled:\n");
    unsetenv("USERNAME");
  }
  ~InitTest() override { unsetenv("USERNAME"); }

  // `path` relative to the web root.
  void Web(const std::string& path, const std::string& content) {
    root_.WriteFile(std::string(kWebRoot) + "/" + path, content);
  }

  static ZANT::APIRequest Request() {
    ZANT::APIRequest request;
    request.SetAPI("ZANT.BrindlexPlyth.Shard", 1, "init");
    return request;
  }

  HandlerRun Run(ZANT::APIRequest& request) {
    const std::string before = Cwd();
    HandlerRun run = plyth_test::RunHandler(InitFunc, request);
    EXPECT_EQ(before, Cwd()) << "working directory not restored";
    return run;
  }

  plyth_test::ApplianceRoot root_;
  plyth_test::FakeIdentity identity_;
};

// ---------------------------------------------------------------------------
// "JSConfig" and what is logged while gathering it.

struct WebFile {
  std::string path;     // relative to the web root
  std::string content;  // "<dir>": a directory
};

struct ConfigCase {
  const char* description;
  std::vector<WebFile> files;
  const char* action;  // null: absent
  std::string jsConfig;
  std::vector<SyslogLine> syslog;
};

void PrintTo(const ConfigCase& c, std::ostream* os) { *os << c.description; }

class InitConfigTest : public InitTest, public ::testing::WithParamInterface<ConfigCase> {};

TEST_P(InitConfigTest, Gathers) {
  const ConfigCase& c = GetParam();
  for (const WebFile& file : c.files) {
    if (file.content == "<dir>") {
      root_.MakeDir(std::string(kWebRoot) + "/" + file.path);
    } else {
      Web(file.path, file.content);
    }
  }
  ZANT::APIRequest request = Request();
  if (c.action != nullptr) request.SetParam("action", c.action);

  HandlerRun run = Run(request);

  ASSERT_TRUE(run.response.IsSuccess());
  EXPECT_EQ(c.jsConfig, ZANT::JsonToString(run.response.GetData()["JSConfig"]));
  EXPECT_EQ(c.syslog, run.syslog);
}

const char kAppConfig[] = "{\"app.js\":{\"ZANT.A.App\":{\"title\":\"A\"}}}";
const char kAppResult[] =
    "{\"webman/modules/a/app.js\":{\"ZANT.A.App\":{\"jsBaseURL\":\"webman/modules/a\","
    "\"jsID\":\"ZANT.A.App\",\"title\":\"A\"}}}";

INSTANTIATE_TEST_SUITE_P(
    Rows, InitConfigTest,
    ::testing::Values(
        ConfigCase{"nothing installed: null", {}, nullptr, "null", {}},
        ConfigCase{"one module, one class",
                   {{"webman/modules/a/config", kAppConfig}, {"webman/modules/a/app.js", ""}},
                   nullptr, kAppResult, {}},
        ConfigCase{"module without configuration is skipped silently",
                   {{"webman/modules/a", "<dir>"}}, nullptr, "null", {}},
        ConfigCase{"plain file in the module directory is not a module",
                   {{"webman/modules/config", kAppConfig}}, nullptr, "null", {}},
        ConfigCase{"debug prefers config.debug",
                   {{"webman/modules/a/config", "{\"x.js\":{}}"},
                    {"webman/modules/a/config.debug", kAppConfig},
                    {"webman/modules/a/app.js", ""}},
                   "debug", kAppResult, {}},
        ConfigCase{"debug falls back to config",
                   {{"webman/modules/a/config", kAppConfig}, {"webman/modules/a/app.js", ""}},
                   "debug", kAppResult, {}},
        ConfigCase{"without debug, config.debug alone is not read",
                   {{"webman/modules/a/config.debug", kAppConfig},
                    {"webman/modules/a/app.js", ""}},
                   "other", "null", {}},
        ConfigCase{"empty object adds nothing", {{"webman/modules/a/config", "{}"}}, nullptr,
                   "null", {}},
        ConfigCase{"entry with an empty array adds nothing and logs nothing",
                   {{"webman/modules/a/config", "{\"app.js\":[]}"},
                    {"webman/modules/a/app.js", ""}},
                   nullptr, "null", {}},
        ConfigCase{"class with an empty array becomes an object",
                   {{"webman/modules/a/config", "{\"app.js\":{\"K\":[]}}"},
                    {"webman/modules/a/app.js", ""}},
                   nullptr,
                   "{\"webman/modules/a/app.js\":{\"K\":{\"jsBaseURL\":\"webman/modules/a\","
                   "\"jsID\":\"K\"}}}",
                   {}},
        ConfigCase{"jsBaseURL and jsID are overwritten",
                   {{"webman/modules/a/config",
                     "{\"app.js\":{\"K\":{\"jsBaseURL\":\"x\",\"jsID\":\"y\",\"n\":1}}}"},
                    {"webman/modules/a/app.js", ""}},
                   nullptr,
                   "{\"webman/modules/a/app.js\":{\"K\":{\"jsBaseURL\":\"webman/modules/a\","
                   "\"jsID\":\"K\",\"n\":1}}}",
                   {}},
        ConfigCase{".url is taken without a file",
                   {{"webman/3rdparty/p/config", "{\".url\":{\"U\":{\"url\":\"http://x\"}}}"}},
                   nullptr,
                   "{\"webman/3rdparty/p/.url\":{\"U\":{\"jsBaseURL\":\"webman/3rdparty/p\","
                   "\"jsID\":\"U\",\"url\":\"http://x\"}}}",
                   {}},
        ConfigCase{"unreadable entry is skipped with the system's error text",
                   {{"webman/modules/a/config", "{\"gone.js\":{\"K\":{}},\".url\":{\"U\":{}}}"}},
                   nullptr,
                   "{\"webman/modules/a/.url\":{\"U\":{\"jsBaseURL\":\"webman/modules/a\","
                   "\"jsID\":\"U\"}}}",
                   {Err(151, "Skip webman/modules/a/gone.js: No such file or directory.")}},
        ConfigCase{"configuration that is not an object",
                   {{"webman/modules/a/config", "[1,2]"}}, nullptr, "null",
                   {Err(138, "Skip webman/modules/a: Config is not an object.")}},
        ConfigCase{"entry that is not an object",
                   {{"webman/modules/a/config", "{\"app.js\":\"x\"}"},
                    {"webman/modules/a/app.js", ""}},
                   nullptr, "null",
                   {Err(161, "Skip webman/modules/a/app.js: Config is not an object.")}},
        ConfigCase{"class that is not an object is named alone",
                   {{"webman/modules/a/config", "{\"app.js\":{\"Bad\":1,\"K\":{}}}"},
                    {"webman/modules/a/app.js", ""}},
                   nullptr,
                   "{\"webman/modules/a/app.js\":{\"K\":{\"jsBaseURL\":\"webman/modules/a\","
                   "\"jsID\":\"K\"}}}",
                   {Err(174, "Skip Bad: Config is not an object.")}},
        ConfigCase{"modules and packages merge into one object",
                   {{"webman/modules/a/config", kAppConfig},
                    {"webman/modules/a/app.js", ""},
                    {"webman/3rdparty/p/config", "{\".url\":{\"U\":{}}}"}},
                   nullptr,
                   "{\"webman/3rdparty/p/.url\":{\"U\":{\"jsBaseURL\":\"webman/3rdparty/p\","
                   "\"jsID\":\"U\"}},\"webman/modules/a/app.js\":{\"ZANT.A.App\":{\"jsBaseURL\":"
                   "\"webman/modules/a\",\"jsID\":\"ZANT.A.App\",\"title\":\"A\"}}}",
                   {}}),
    [](const ::testing::TestParamInfo<ConfigCase>& info) {
      return "Row" + std::to_string(info.index);
    });

TEST_F(InitTest, SymlinkedPackageIsReadThroughTheLink) {
  Web("pkgs/q/config", "{\".url\":{\"U\":{}}}");
  ASSERT_EQ(0, symlink(root_.Host(std::string(kWebRoot) + "/pkgs/q").c_str(),
                       root_.Host(std::string(kWebRoot) + "/webman/3rdparty/q").c_str()));
  ZANT::APIRequest request = Request();
  HandlerRun run = Run(request);
  EXPECT_EQ(
      "{\"webman/3rdparty/q/.url\":{\"U\":{\"jsBaseURL\":\"webman/3rdparty/q\",\"jsID\":\"U\"}}}",
      ZANT::JsonToString(run.response.GetData()["JSConfig"]));
}

TEST_F(InitTest, BrokenConfigurationFailsWith117AndNamesThePlainFile) {
  const std::string broken = "{\"app.js\": {";
  Web("webman/modules/a/config.debug", broken);
  Web("webman/modules/b/config", kAppConfig);
  Web("webman/modules/b/app.js", "");
  ZANT::APIRequest request = Request();
  request.SetParam("action", "debug");

  HandlerRun run = Run(request);

  Json::Reader reader;
  Json::Value ignored;
  ASSERT_FALSE(reader.parse(broken, ignored, false));
  EXPECT_EQ(117, run.response.GetErrorCode());
  EXPECT_TRUE(run.response.GetData().isNull());
  EXPECT_EQ(std::vector<SyslogLine>{Err(215, "webman/modules/a/config: " +
                                                 reader.getFormattedErrorMessages() + "\n")},
            run.syslog);
  EXPECT_EQ("{\"error\":{\"code\":117},\"success\":false}",
            ZANT::JsonToString(run.response.ToResult()));
}

struct MissingDirCase {
  const char* description;
  const char* removed;
};

void PrintTo(const MissingDirCase& c, std::ostream* os) { *os << c.description; }

class InitMissingDirTest : public InitTest, public ::testing::WithParamInterface<MissingDirCase> {};

TEST_P(InitMissingDirTest, FailsWith117) {
  root_.Remove(std::string(kWebRoot) + "/" + GetParam().removed);
  ZANT::APIRequest request = Request();
  HandlerRun run = Run(request);
  EXPECT_EQ(117, run.response.GetErrorCode());
  EXPECT_TRUE(run.syslog.empty());
}

INSTANTIATE_TEST_SUITE_P(Rows, InitMissingDirTest,
                         ::testing::Values(MissingDirCase{"modules", "webman/modules"},
                                           MissingDirCase{"3rdparty", "webman/3rdparty"},
                                           MissingDirCase{"the whole web root", ""}),
                         [](const ::testing::TestParamInfo<MissingDirCase>& info) {
                           return "Row" + std::to_string(info.index);
                         });

TEST_F(InitTest, ScansRestoreTheWorkingDirectoryWhenCalledAlone) {
  const std::string before = Cwd();
  ZANT::APIRequest request = Request();
  Json::Value config;
  EXPECT_TRUE(ScanModulesJSConfig(&request, config));
  EXPECT_EQ(before, Cwd());
  root_.Remove(std::string(kWebRoot) + "/webman/3rdparty");
  EXPECT_FALSE(Scan3rdPartyJSConfig(&request, config));
  EXPECT_EQ(before, Cwd());
}

// ---------------------------------------------------------------------------
// "Session".

enum Visitor { kAnonymous, kUser, kAdmin, kServerNamed };

struct SessionCase {
  const char* description;
  Visitor visitor;
  const char* serverUser;  // USERNAME; null: unset
  const char* referer;     // HTTP_REFERER; null: unset
  const char* formatFile;  // date_time_format; null: missing
  std::string session;
  std::vector<SyslogLine> syslog;
};

void PrintTo(const SessionCase& c, std::ostream* os) { *os << c.description; }

class InitSessionTest : public InitTest, public ::testing::WithParamInterface<SessionCase> {};

TEST_P(InitSessionTest, Session) {
  const SessionCase& c = GetParam();
  if (c.formatFile != nullptr) {
    root_.WriteFile("/usr/zant/etc/date_time_format", c.formatFile);
  } else {
    root_.Remove("/usr/zant/etc/date_time_format");
  }
  ZANT::APIRequest request = Request();
  request.SetUILanguage("ger");
  request.SetSessionToken("TOK");
  request.SetServerVar("REQUEST_SCHEME", "http");
  request.SetServerVar("HTTP_HOST", "nas:5000");
  request.SetServerVar("SERVER_ADDR", "10.0.0.2");
  request.SetServerVar("SERVER_PORT", "5000");
  request.SetServerVar("REMOTE_ADDR", "10.0.0.9");
  request.SetServerVar("REMOTE_PORT", "40000");
  if (c.referer != nullptr) request.SetServerVar("HTTP_REFERER", c.referer);
  if (c.visitor == kUser) request.SetLogin("alice", 1026, ZANT::kAuthUser);
  if (c.visitor == kAdmin) request.SetLogin("admin", 1024, ZANT::kAuthAdmin);
  if (c.visitor == kServerNamed) request.SetLogin("", -1, ZANT::kAuthWebServer);
  if (c.serverUser != nullptr) setenv("USERNAME", c.serverUser, 1);

  HandlerRun run = Run(request);

  ASSERT_TRUE(run.response.IsSuccess());
  EXPECT_EQ(c.session, ZANT::JsonToString(run.response.GetData()["Session"]));
  std::vector<SyslogLine> initLines;
  for (const SyslogLine& line : run.syslog) {
    if (line.text.rfind(std::string(kSource) + ":89 ", 0) == 0) initLines.push_back(line);
  }
  EXPECT_EQ(c.syslog, initLines);
}

const char kFormats[] = "{\"date_format\":\"d/m/Y\",\"time_format\":\"h:i a\"}";
const char kSignedIn[] = "{\"ZantToken\":\"TOK\",\"isLogined\":true,\"lang\":\"ger\",\"standalone\":true}";
const char kGuest[] =
    "{\"date_format\":\"d/m/Y\",\"isLogined\":false,\"lang\":\"ger\",\"standalone\":true,"
    "\"time_format\":\"h:i a\"}";

INSTANTIATE_TEST_SUITE_P(
    Rows, InitSessionTest,
    ::testing::Values(
        SessionCase{"signed-in user gets the token, no formats", kUser, nullptr, nullptr,
                    kFormats, kSignedIn, {}},
        SessionCase{"administrator", kAdmin, nullptr, nullptr, kFormats, kSignedIn, {}},
        SessionCase{"anonymous gets the formats", kAnonymous, nullptr, nullptr, kFormats, kGuest,
                    {}},
        SessionCase{"format file missing: defaults, logged at line 89", kAnonymous, nullptr,
                    nullptr, nullptr,
                    "{\"date_format\":\"Y-m-d\",\"isLogined\":false,\"lang\":\"ger\","
                    "\"standalone\":true,\"time_format\":\"H:i\"}",
                    {Err(89, "Failed to read date time format from file")}},
        SessionCase{"format file without time_format: null", kAnonymous, nullptr, nullptr,
                    "{\"date_format\":\"Y.m.d\"}",
                    "{\"date_format\":\"Y.m.d\",\"isLogined\":false,\"lang\":\"ger\","
                    "\"standalone\":true,\"time_format\":null}",
                    {}},
        SessionCase{"format file that is not an object: both null", kAnonymous, nullptr, nullptr,
                    "[1]",
                    "{\"date_format\":null,\"isLogined\":false,\"lang\":\"ger\","
                    "\"standalone\":true,\"time_format\":null}",
                    {}},
        SessionCase{"broken format file: defaults", kAnonymous, nullptr, nullptr, "{",
                    "{\"date_format\":\"Y-m-d\",\"isLogined\":false,\"lang\":\"ger\","
                    "\"standalone\":true,\"time_format\":\"H:i\"}",
                    {Err(89, "Failed to read date time format from file")}},
        SessionCase{"-7 from the same domain and port", kServerNamed, "bob", "https://nas:5000/x",
                    kFormats, kSignedIn, {}},
        SessionCase{"-7 from another port", kServerNamed, "bob", "http://nas:5001/", kFormats,
                    kGuest, {}},
        SessionCase{"-7 without a referer", kServerNamed, "bob", nullptr, kFormats, kGuest, {}},
        SessionCase{"disabled server-named user", kServerNamed, "carol", "http://nas:5000/",
                    kFormats, kGuest, {}}),
    [](const ::testing::TestParamInfo<SessionCase>& info) {
      return "Row" + std::to_string(info.index);
    });

// ---------------------------------------------------------------------------
// IsSameDomainAndPort.

struct SameDomainCase {
  const char* description;
  std::vector<std::pair<std::string, std::string>> vars;
  const char* connections;  // relay connections table; null: none; "<dir>": unreadable
  bool expected;
  bool queriesRelay;
};

void PrintTo(const SameDomainCase& c, std::ostream* os) { *os << c.description; }

const std::vector<std::pair<std::string, std::string>> kEndpoints = {
    {"SERVER_ADDR", "10.0.0.2"},
    {"SERVER_PORT", "5000"},
    {"REMOTE_ADDR", "10.0.0.9"},
    {"REMOTE_PORT", "40000"}};

std::vector<std::pair<std::string, std::string>> Vars(
    const char* scheme, const char* host, const char* referer,
    std::vector<std::pair<std::string, std::string>> extra = kEndpoints) {
  std::vector<std::pair<std::string, std::string>> vars = std::move(extra);
  vars.emplace_back("REQUEST_SCHEME", scheme);
  if (host != nullptr) vars.emplace_back("HTTP_HOST", host);
  if (referer != nullptr) vars.emplace_back("HTTP_REFERER", referer);
  return vars;
}

class SameDomainTest : public InitTest, public ::testing::WithParamInterface<SameDomainCase> {};

TEST_P(SameDomainTest, Check) {
  const SameDomainCase& c = GetParam();
  if (c.connections != nullptr && std::string(c.connections) == "<dir>") {
    root_.MakeDir("/usr/zant/etc/relay/connections");
  } else if (c.connections != nullptr) {
    root_.WriteFile("/usr/zant/etc/relay/connections", c.connections);
  }
  ZANT::APIRequest request;
  for (const auto& var : c.vars) request.SetServerVar(var.first, var.second);
  plyth_test::SyslogCapture syslog;

  EXPECT_EQ(c.expected, IsSameDomainAndPort(&request));

  // The relay query is made with root ids, entered and left at line 59.
  EXPECT_EQ(c.queriesRelay, !identity_.Calls().empty());
  EXPECT_EQ(1026u, identity_.Euid());
  EXPECT_EQ(100u, identity_.Egid());
  for (const SyslogLine& line : syslog.Lines()) {
    EXPECT_EQ(0u, line.text.find(std::string(kSource) + ":59 ")) << line.text;
  }
  EXPECT_EQ(c.queriesRelay, !syslog.Lines().empty());
}

const char kRelayed[] = "* * * * 32\n";

INSTANTIATE_TEST_SUITE_P(
    Rows, SameDomainTest,
    ::testing::Values(
        SameDomainCase{"same host and port, https referer", Vars("http", "nas:5000",
                                                                  "https://nas:5000/path?q"),
                       nullptr, true, true},
        SameDomainCase{"no referer: no relay query", Vars("http", "nas:5000", nullptr), nullptr,
                       false, false},
        SameDomainCase{"no host", Vars("http", nullptr, "http://nas:5000/"), nullptr, false,
                       false},
        SameDomainCase{"missing end point", Vars("http", "nas:5000", "http://nas:5000/", {
                                                   {"SERVER_ADDR", "10.0.0.2"},
                                                   {"SERVER_PORT", "5000"},
                                                   {"REMOTE_ADDR", "10.0.0.9"}}),
                       nullptr, false, false},
        SameDomainCase{"host differs in letter case", Vars("http", "NAS:5000", "http://nas:5000/"),
                       nullptr, false, true},
        SameDomainCase{"other port", Vars("http", "nas:5000", "http://nas:5001/"), nullptr, false,
                       true},
        SameDomainCase{"other host", Vars("http", "nas:5000", "http://box:5000/"), nullptr, false,
                       true},
        SameDomainCase{"relay table unreadable", Vars("http", "nas:5000", "http://nas:5000/"),
                       "<dir>", false, true},
        SameDomainCase{"default ports: http host against https referer",
                       Vars("http", "nas", "https://nas/"), nullptr, false, true},
        SameDomainCase{"type 32 makes the host https", Vars("http", "nas", "https://nas/"),
                       kRelayed, true, true},
        SameDomainCase{"type 32, referer scheme ignored", Vars("http", "nas", "http://nas:443/"),
                       kRelayed, true, true},
        SameDomainCase{"type 32 against an http referer without port",
                       Vars("http", "nas", "http://nas/"), kRelayed, false, true},
        SameDomainCase{"unparsable referer", Vars("http", "nas:5000", "nas:5000"), nullptr,
                       false, true}),
    [](const ::testing::TestParamInfo<SameDomainCase>& info) {
      return "Row" + std::to_string(info.index);
    });

}  // namespace
