// Black-box tests of entry.cgi: the real program, a throw-away appliance
// root (scripts/mkroot --with-fixture), exact bytes on standard output.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <regex>
#include <string>

#include "blackbox_support.h"
#include "zant/userdb.h"

namespace {

using host_blackbox::CgiRun;
using host_blackbox::Env;
using host_blackbox::JsonAnswer;
using host_blackbox::TestRoot;

const std::string kTest = "api=ZANT.HostTest&version=1&method=";

TestRoot* gRoot = nullptr;

class EntryCgi : public ::testing::Environment {
 public:
  void SetUp() override {
    gRoot = new TestRoot();
    gRoot->Write("/usr/zant/etc/fixture/answers.json", R"({"answers": [
      {"api": "ZANT.Demo.Files", "version": 1, "method": "get",
       "params": {"path": "link:P1"},
       "result": {"success": true, "data": {"name": "report.kdoc"}}},
      {"api": "ZANT.Demo.Files", "version": 1, "method": "get",
       "params": {"path": "link:P2"}, "user": "alice",
       "result": {"success": false, "error": {"code": 1002}, "extra": [1]}}
    ]})");
    // Users for the sign-in tests.
    setenv("ZANT_ROOT", gRoot->Path().c_str(), 1);
    ZANT::UserDB::User alice;
    alice.name = "alice";
    alice.gid = 100;
    ASSERT_EQ(ZANT::UserDB::AddUser(&alice, "secret pw"), ZANT::UserDB::Status::kOk);
    ZANT::UserDB::User numeric;
    numeric.name = "numeric";
    ASSERT_EQ(ZANT::UserDB::AddUser(&numeric, "1.50"), ZANT::UserDB::Status::kOk);
    ZANT::UserDB::User carol;
    carol.name = "carol";
    carol.disabled = true;
    ASSERT_EQ(ZANT::UserDB::AddUser(&carol, "pw"), ZANT::UserDB::Status::kOk);
    ZANT::UserDB::User root;
    root.name = "root_admin";
    root.admin = true;
    ASSERT_EQ(ZANT::UserDB::AddUser(&root, "pw"), ZANT::UserDB::Status::kOk);
    unsetenv("ZANT_ROOT");
  }
  void TearDown() override { delete gRoot; }
};

const ::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new EntryCgi);

Env BaseEnv() {
  return Env{{"ZANT_ROOT", gRoot->Path()},    {"PATH", "/usr/bin:/bin"},
             {"GATEWAY_INTERFACE", "CGI/1.1"}, {"REQUEST_METHOD", "GET"},
             {"SERVER_NAME", "nas.test"},      {"SERVER_PORT", "5000"},
             {"HTTP_HOST", "nas.test:5000"},   {"REQUEST_URI", "/webapi/entry.cgi"}};
}

// `extra` replaces variables of the same name.
void Merge(Env& env, const Env& extra) {
  for (const auto& var : extra) {
    bool replaced = false;
    for (auto& have : env) {
      if (have.first == var.first) {
        have.second = var.second;
        replaced = true;
      }
    }
    if (!replaced) env.push_back(var);
  }
}

CgiRun Get(const std::string& query, Env extra = {}) {
  Env env = BaseEnv();
  env.emplace_back("QUERY_STRING", query);
  Merge(env, extra);
  return host_blackbox::Run(gRoot->EntryCgi(), env);
}

CgiRun Post(const std::string& query, const std::string& body, Env extra = {},
            const std::string& type = "application/x-www-form-urlencoded") {
  Env env = BaseEnv();
  env[3].second = "POST";
  env.emplace_back("QUERY_STRING", query);
  env.emplace_back("CONTENT_TYPE", type);
  env.emplace_back("CONTENT_LENGTH", std::to_string(body.size()));
  Merge(env, extra);
  return host_blackbox::Run(gRoot->EntryCgi(), env, body);
}

std::string Error(int code) {
  return JsonAnswer("{\"error\":{\"code\":" + std::to_string(code) + "},\"success\":false}");
}

// --- GET requests: decoding, dispatch, errors, raw answers ---

struct AnswerRow {
  const char* name;
  std::string query;
  std::string expected;
};

class Answers : public ::testing::TestWithParam<AnswerRow> {};

TEST_P(Answers, ExactBytes) {
  const CgiRun run = Get(GetParam().query);
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.out, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    EntryCgi, Answers,
    ::testing::Values(
        AnswerRow{"percent_and_json_decoding",
                  kTest + "echo&a=%22abc%22&b=abc&c=1&d=%7B%22x%22%3A%5B1%2Ctrue%5D%7D&e=a+b%20c"
                          "&f=00123&g=&h&i=null&j=%5B1%2C%5D&k=%27q%27&l=-0.5e3",
                  JsonAnswer("{\"data\":{\"a\":\"abc\",\"b\":\"abc\",\"c\":1,\"d\":{\"x\":[1,true]},"
                             "\"e\":\"a b c\",\"f\":\"00123\",\"g\":\"\",\"h\":\"\",\"i\":null,"
                             "\"j\":\"[1,]\",\"k\":\"'q'\",\"l\":-500.0},\"success\":true}")},
        AnswerRow{"first_occurrence_counts", kTest + "echo&a=1&a=2&api=Other&&",
                  JsonAnswer("{\"data\":{\"a\":1},\"success\":true}")},
        AnswerRow{"selectors_as_json_strings",
                  "api=%22ZANT.HostTest%22&version=%221%22&method=%22echo%22",
                  JsonAnswer("{\"data\":{},\"success\":true}")},
        AnswerRow{"second_version", "api=ZANT.HostTest&version=2&method=echo",
                  JsonAnswer("{\"data\":{\"version\":2},\"success\":true}")},
        AnswerRow{"unknown_api", "api=ZANT.Nope&version=1&method=echo", Error(102)},
        AnswerRow{"unknown_method", kTest + "nope", Error(103)},
        AnswerRow{"unsupported_version", "api=ZANT.HostTest&version=3&method=echo", Error(104)},
        AnswerRow{"check_answers_0", kTest + "denied", Error(105)},
        AnswerRow{"check_answers_2", kTest + "two", Error(105)},
        AnswerRow{"method_without_check_row", kTest + "nocheck", Error(105)},
        AnswerRow{"handler_error", kTest + "error", Error(117)},
        AnswerRow{"handler_without_answer", kTest + "noanswer", Error(100)},
        AnswerRow{"no_api", "version=1&method=echo", Error(101)},
        AnswerRow{"no_version", "api=ZANT.HostTest&method=echo", Error(101)},
        AnswerRow{"version_not_a_number", "api=ZANT.HostTest&version=abc&method=echo", Error(101)},
        AnswerRow{"version_not_an_integer", "api=ZANT.HostTest&version=1.5&method=echo", Error(101)},
        AnswerRow{"method_not_a_string", "api=ZANT.HostTest&version=1&method=7", Error(101)},
        AnswerRow{"bad_escape", kTest + "echo&a=%zz", Error(101)},
        AnswerRow{"empty_request", "", Error(101)},
        AnswerRow{"redirect", kTest + "redirect",
                  "Status: 302 Found\r\nLocation: http://example.test/next?a=1\r\n\r\n"},
        AnswerRow{"raw_cookie_line_then_redirect", kTest + "cookie_redirect",
                  "Set-Cookie: a=b; path=/\r\nStatus: 302 Found\r\n"
                  "Location: http://example.test/landing\r\n\r\n"},
        AnswerRow{"raw_output", kTest + "raw",
                  "Set-Cookie: raw=1; path=/\r\nContent-Type:text/plain\r\n\r\nABC"},
        AnswerRow{"fixture_answer_unchanged",
                  "api=ZANT.Demo.Files&version=1&method=get&path=%22link:P1%22",
                  JsonAnswer("{\"data\":{\"name\":\"report.kdoc\"},\"success\":true}")},
        AnswerRow{"fixture_params_differ",
                  "api=ZANT.Demo.Files&version=1&method=get&path=%22link:P1%22&x=1", Error(119)},
        AnswerRow{"fixture_user_differs",
                  "api=ZANT.Demo.Files&version=1&method=get&path=%22link:P2%22", Error(119)},
        AnswerRow{"login_without_account", "api=ZANT.Core.Auth&version=1&method=login", Error(101)},
        AnswerRow{"logout_without_session", "api=ZANT.Core.Auth&version=1&method=logout",
                  "Content-Type: application/json; charset=\"UTF-8\"\r\n"
                  "Set-Cookie: id=; Expires=Thu, 01 Jan 1970 00:00:00 GMT; Path=/; HttpOnly; "
                  "SameSite=Lax\r\n\r\n{\"success\":true}"}),
    [](const ::testing::TestParamInfo<AnswerRow>& info) { return std::string(info.param.name); });

// --- Form bodies ---

struct BodyRow {
  const char* name;
  std::string query;
  std::string body;
  Env extra;
  std::string type;
  std::string expected;
};

class Bodies : public ::testing::TestWithParam<BodyRow> {};

TEST_P(Bodies, ExactBytes) {
  const BodyRow& row = GetParam();
  const CgiRun run = Post(row.query, row.body, row.extra, row.type);
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.out, row.expected);
}

const std::string kForm = "application/x-www-form-urlencoded";

INSTANTIATE_TEST_SUITE_P(
    EntryCgi, Bodies,
    ::testing::Values(
        BodyRow{"query_before_body", kTest + "echo&a=query", "b=%22x%22&a=body", {},
                kForm + "; charset=UTF-8",
                JsonAnswer("{\"data\":{\"a\":\"query\",\"b\":\"x\"},\"success\":true}")},
        BodyRow{"selectors_in_body", "", kTest + "echo&x=1", {}, "Application/X-WWW-Form-Urlencoded",
                JsonAnswer("{\"data\":{\"x\":1},\"success\":true}")},
        BodyRow{"other_type_ignored", kTest + "echo", "a=1", {}, "application/json",
                JsonAnswer("{\"data\":{},\"success\":true}")},
        BodyRow{"read_to_end_without_length", kTest + "echo", "a=%5B%5D", {{"CONTENT_LENGTH", ""}},
                kForm, JsonAnswer("{\"data\":{\"a\":[]},\"success\":true}")},
        BodyRow{"length_over_limit", kTest + "echo", "", {{"CONTENT_LENGTH", "1048577"}}, kForm,
                Error(108)},
        BodyRow{"huge_length", kTest + "echo", "", {{"CONTENT_LENGTH", "99999999999999999999999"}},
                kForm, Error(108)},
        BodyRow{"length_not_a_number", kTest + "echo", "a=1", {{"CONTENT_LENGTH", "3a"}}, kForm,
                Error(101)},
        BodyRow{"body_shorter_than_length", kTest + "echo", "a=1", {{"CONTENT_LENGTH", "100"}},
                kForm, Error(101)},
        BodyRow{"body_over_limit_without_length", kTest + "echo", std::string(1048577, 'a'),
                {{"CONTENT_LENGTH", ""}}, kForm, Error(108)},
        BodyRow{"bad_escape_in_body", kTest + "echo", "a=%%", {}, kForm, Error(101)},
        BodyRow{"binary_body", kTest + "echo", std::string("a=\x01\x02", 4), {}, kForm,
                JsonAnswer("{\"data\":{\"a\":\"\\u0001\\u0002\"},\"success\":true}")}),
    [](const ::testing::TestParamInfo<BodyRow>& info) { return std::string(info.param.name); });

TEST(EntryCgiLimits, BodyOfExactlyOneMebibyteIsServed) {
  const std::string head = kTest + "echo&pad=";
  const std::string pad(1048576 - head.size(), 'x');
  const CgiRun run = Post("", head + pad);
  EXPECT_EQ(run.out, JsonAnswer("{\"data\":{\"pad\":\"" + pad + "\"},\"success\":true}"));
}

TEST(EntryCgiLimits, QueryLimitIsSixtyFourKibibytes) {
  const std::string head = kTest + "echo&pad=";
  const std::string pad(65536 - head.size(), 'y');
  EXPECT_EQ(Get(head + pad).out,
            JsonAnswer("{\"data\":{\"pad\":\"" + pad + "\"},\"success\":true}"));
  EXPECT_EQ(Get(head + pad + "y").out, Error(108));
}

TEST(EntryCgiLimits, TooManyFieldsOrCookiesAreRefused) {
  std::string query = kTest + "echo";
  for (int i = 0; i < 1021; ++i) query += "&f" + std::to_string(i) + "=1";
  EXPECT_EQ(Get(query).out.substr(0, 60), JsonAnswer("{\"data\":{").substr(0, 60));
  EXPECT_EQ(Get(query + "&one_more=1").out, Error(108));
  EXPECT_EQ(Get(kTest + "echo", {{"HTTP_COOKIE", "a=" + std::string(65535, 'c')}}).out, Error(108));
}

// --- Cookies ---

TEST(EntryCgiCookies, PairsAreParsedAndBinaryBytesTolerated) {
  EXPECT_EQ(Get(kTest + "cookies", {{"HTTP_COOKIE", "a=1; b = x y ;c=\"q\"; =bad; novalue"}}).out,
            JsonAnswer("{\"data\":{\"a\":\"1\",\"b\":\"x y\",\"c\":\"\\\"q\\\"\"},\"success\":true}"));
  const std::string binary = std::string("\x01\x7f\xfe=1; a=\xff\xfe\x80; ;;=; b=\x1b[0m; \xc3\xa9=2");
  const CgiRun run = Get(kTest + "cookies", {{"HTTP_COOKIE", binary}});
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.out.substr(0, JsonAnswer("{\"data\":{").size()), JsonAnswer("{\"data\":{"));
}

// --- Server variables and the process environment ---

TEST(EntryCgiEnvironment, ServerVariablesReachTheModule) {
  const CgiRun run = Get(kTest + "env&names=%5B%22HTTP_HOST%22%2C%22HOME%22%2C%22HOST%22%5D",
                         {{"HOME", "/root"}, {"HOST", "nas"}, {"HTTPS", "on"},
                          {"REQUEST_URI", "/alias/d/s/AbC?x=1"}});
  EXPECT_EQ(run.exitStatus, 0);
  const std::string body = run.out.substr(run.out.find("\r\n\r\n") + 4);
  EXPECT_NE(body.find("\"getenv\":{\"HOME\":\"/root\",\"HOST\":\"nas\",\"HTTP_HOST\":\"nas.test:5000\"}"),
            std::string::npos) << body;
  EXPECT_NE(body.find("\"server\":{\"HOME\":null,\"HOST\":\"nas\",\"HTTP_HOST\":\"nas.test:5000\"}"),
            std::string::npos) << body;
  EXPECT_NE(body.find("\"url\":{\"host\":\"nas.test\",\"path\":\"/alias/d/s/AbC\",\"port\":5000,"
                      "\"proto\":\"https\"}"),
            std::string::npos) << body;
}

struct SignInRow {
  const char* name;
  Env extra;
  std::string expectedData;
};

class WebServerUser : public ::testing::TestWithParam<SignInRow> {};

TEST_P(WebServerUser, WhoAmI) {
  EXPECT_EQ(Get(kTest + "whoami", GetParam().extra).out,
            JsonAnswer("{\"data\":" + GetParam().expectedData + ",\"success\":true}"));
}

INSTANTIATE_TEST_SUITE_P(
    EntryCgi, WebServerUser,
    ::testing::Values(
        SignInRow{"nobody", {},
                  "{\"USERNAME\":null,\"auth\":-1,\"lang\":\"enu\",\"token\":\"\",\"uid\":-1,\"user\":\"\"}"},
        SignInRow{"named_by_the_web_server", {{"REMOTE_USER", "bob"}},
                  "{\"USERNAME\":\"bob\",\"auth\":-7,\"lang\":\"enu\",\"token\":\"\",\"uid\":-1,\"user\":\"\"}"},
        SignInRow{"inherited_USERNAME_is_dropped", {{"USERNAME", "mallory"}},
                  "{\"USERNAME\":null,\"auth\":-1,\"lang\":\"enu\",\"token\":\"\",\"uid\":-1,\"user\":\"\"}"},
        SignInRow{"empty_REMOTE_USER", {{"REMOTE_USER", ""}},
                  "{\"USERNAME\":null,\"auth\":-1,\"lang\":\"enu\",\"token\":\"\",\"uid\":-1,\"user\":\"\"}"},
        SignInRow{"unknown_session_cookie", {{"HTTP_COOKIE", "id=" + std::string(64, 'a')}},
                  "{\"USERNAME\":null,\"auth\":-1,\"lang\":\"enu\",\"token\":\"\",\"uid\":-1,\"user\":\"\"}"}),
    [](const ::testing::TestParamInfo<SignInRow>& info) { return std::string(info.param.name); });

TEST(EntryCgiWebMan, SeesTheSignInOfTheRequest) {
  EXPECT_EQ(Get(kTest + "webman", {{"REMOTE_USER", "alice"}}).out,
            JsonAnswer("{\"data\":{\"authorized\":-7,\"token\":\"\"},\"success\":true}"));
  EXPECT_EQ(Get(kTest + "webman", {{"REMOTE_USER", "carol"}}).out,
            JsonAnswer("{\"data\":{\"authorized\":-2,\"token\":\"\"},\"success\":true}"));
  EXPECT_EQ(Get(kTest + "webman").out,
            JsonAnswer("{\"data\":{\"authorized\":-1,\"token\":\"\"},\"success\":true}"));
}

// --- UI language ---

struct LanguageRow {
  const char* name;
  std::string query;
  std::string acceptLanguage;
  std::string expected;
};

class Languages : public ::testing::TestWithParam<LanguageRow> {};

TEST_P(Languages, Chosen) {
  const CgiRun run = Get(kTest + "whoami" + GetParam().query,
                         {{"HTTP_ACCEPT_LANGUAGE", GetParam().acceptLanguage}});
  EXPECT_NE(run.out.find("\"lang\":\"" + GetParam().expected + "\""), std::string::npos) << run.out;
}

INSTANTIATE_TEST_SUITE_P(
    EntryCgi, Languages,
    ::testing::Values(LanguageRow{"default", "", "", "enu"},
                      LanguageRow{"accept_language", "", "fr-CH, fr;q=0.9, en;q=0.8", "fre"},
                      LanguageRow{"accept_language_q_order", "", "en;q=0.5, zh-TW;q=0.8", "cht"},
                      LanguageRow{"accept_language_unknown", "", "xx, *", "enu"},
                      LanguageRow{"lang_param_iso", "&lang=de", "fr", "ger"},
                      LanguageRow{"lang_param_code", "&lang=%22jpn%22", "fr", "jpn"},
                      LanguageRow{"lang_param_unknown", "&lang=xx", "ko", "krn"}),
    [](const ::testing::TestParamInfo<LanguageRow>& info) { return std::string(info.param.name); });

// --- Sign-in sessions ---

struct LoginResult {
  std::string id;
  std::string token;
};

LoginResult Login(const std::string& body, Env extra = {}) {
  const CgiRun run = Post("api=ZANT.Core.Auth&version=1&method=login", body, extra);
  std::smatch m;
  static const std::regex kShape(
      "Content-Type: application/json; charset=\"UTF-8\"\r\n"
      "Set-Cookie: id=([0-9a-f]{64}); Path=/; HttpOnly; SameSite=Lax(; Secure)?\r\n\r\n"
      "\\{\"data\":\\{\"ZantToken\":\"([a-zA-Z]{26})\",\"account\":\"[a-z_]+\",\"is_admin\":(true|false)\\},"
      "\"success\":true\\}");
  if (!std::regex_match(run.out, m, kShape)) {
    ADD_FAILURE() << "login answer: " << run.out;
    return LoginResult{};
  }
  return LoginResult{m[1], m[3]};
}

TEST(EntryCgiSession, LoginWhoAmILogout) {
  const LoginResult login = Login("account=alice&passwd=secret+pw&lang=de");
  ASSERT_FALSE(login.id.empty());
  // The session file is named by the hash of the id, not by the id.
  EXPECT_TRUE(gRoot->Read("/var/lib/zant/sessions/" + login.id).empty());
  const Env cookie = {{"HTTP_COOKIE", "other=1; id=" + login.id},
                      {"HTTP_ACCEPT_LANGUAGE", "fr"}};
  EXPECT_EQ(Get(kTest + "whoami", cookie).out,
            JsonAnswer("{\"data\":{\"USERNAME\":null,\"auth\":1,\"lang\":\"ger\",\"token\":\"" +
                       login.token + "\",\"uid\":1026,\"user\":\"alice\"},\"success\":true}"));
  // A signed-in user wins over a name from the web server, which is still exposed.
  Env both = cookie;
  both.emplace_back("REMOTE_USER", "bob");
  EXPECT_NE(Get(kTest + "whoami&lang=ja", both).out.find(
                "{\"USERNAME\":\"bob\",\"auth\":1,\"lang\":\"jpn\""),
            std::string::npos);

  EXPECT_EQ(Get("api=ZANT.Core.Auth&version=1&method=logout", cookie).out, Error(105));
  EXPECT_EQ(Get("api=ZANT.Core.Auth&version=1&method=logout&ZantToken=wrong", cookie).out,
            Error(105));
  EXPECT_EQ(Get("api=ZANT.Core.Auth&version=1&method=logout&ZantToken=" + login.token, cookie).out,
            "Content-Type: application/json; charset=\"UTF-8\"\r\n"
            "Set-Cookie: id=; Expires=Thu, 01 Jan 1970 00:00:00 GMT; Path=/; HttpOnly; "
            "SameSite=Lax\r\n\r\n{\"success\":true}");
  EXPECT_NE(Get(kTest + "whoami", cookie).out.find("\"auth\":-1"), std::string::npos);
}

TEST(EntryCgiSession, TokenInHeaderAndSecureCookie) {
  const LoginResult login = Login("account=root_admin&passwd=pw", {{"HTTPS", "on"}});
  ASSERT_FALSE(login.id.empty());
  const Env cookie = {{"HTTP_COOKIE", "id=" + login.id}};
  EXPECT_NE(Get(kTest + "whoami", cookie).out.find("\"auth\":2"), std::string::npos);
  Env withHeader = cookie;
  withHeader.emplace_back("HTTP_X_ZANTTOKEN", login.token);
  EXPECT_NE(Get("api=ZANT.Core.Auth&version=1&method=logout", withHeader).out.find("\"success\":true"),
            std::string::npos);
}

TEST(EntryCgiSession, PasswordThatReadsAsJsonIsTakenAsTyped) {
  EXPECT_FALSE(Login("account=numeric&passwd=1.50").id.empty());
  EXPECT_FALSE(Login("account=numeric&passwd=%221.50%22").id.empty());
}

struct RefusedRow {
  const char* name;
  std::string body;
};

class RefusedSignIn : public ::testing::TestWithParam<RefusedRow> {};

TEST_P(RefusedSignIn, AnswersOneCode) {
  EXPECT_EQ(Post("api=ZANT.Core.Auth&version=1&method=login", GetParam().body).out, Error(400));
}

INSTANTIATE_TEST_SUITE_P(
    EntryCgi, RefusedSignIn,
    ::testing::Values(RefusedRow{"wrong_password", "account=alice&passwd=secret"},
                      RefusedRow{"unknown_account", "account=zoe&passwd=secret+pw"},
                      RefusedRow{"disabled_account", "account=carol&passwd=pw"},
                      RefusedRow{"password_number_text_differs", "account=numeric&passwd=1.5"}),
    [](const ::testing::TestParamInfo<RefusedRow>& info) { return std::string(info.param.name); });

TEST(EntryCgiSession, SessionOfADisabledAccountEnds) {
  const LoginResult login = Login("account=alice&passwd=secret+pw");
  ASSERT_FALSE(login.id.empty());
  setenv("ZANT_ROOT", gRoot->Path().c_str(), 1);
  ASSERT_EQ(ZANT::UserDB::SetFlags("alice", false, true), ZANT::UserDB::Status::kOk);
  EXPECT_NE(Get(kTest + "whoami", {{"HTTP_COOKIE", "id=" + login.id}}).out.find("\"auth\":-1"),
            std::string::npos);
  ASSERT_EQ(ZANT::UserDB::SetFlags("alice", false, false), ZANT::UserDB::Status::kOk);
  unsetenv("ZANT_ROOT");
  // The session was dropped, not merely ignored.
  EXPECT_NE(Get(kTest + "whoami", {{"HTTP_COOKIE", "id=" + login.id}}).out.find("\"auth\":-1"),
            std::string::npos);
}

// --- Fixture log, module loading, the appliance root ---

TEST(EntryCgiFixture, EveryCallIsLogged) {
  const std::string before = gRoot->Read("/var/log/zant-fixture.log");
  Get("api=ZANT.Demo.Files&version=1&method=get&path=%22link:P9%22&n=1");
  const std::string after = gRoot->Read("/var/log/zant-fixture.log");
  EXPECT_EQ(after.substr(before.size()),
            "{\"api\":\"ZANT.Demo.Files\",\"method\":\"get\",\"params\":{\"n\":1,\"path\":\"link:P9\"},"
            "\"user\":\"\",\"version\":1}\n");
}

TEST(EntryCgiModules, BrokenModulesAreLoggedAndSkipped) {
  TestRoot root;
  root.Write("/usr/zant/lib/webapi/ZANT.Broken.so", "not a library");
  root.Write("/usr/zant/lib/webapi/notes.txt", "ignored");
  Env env = BaseEnv();
  env[0].second = root.Path();
  env.emplace_back("QUERY_STRING", kTest + "echo&a=1");
  const CgiRun run = host_blackbox::Run(root.EntryCgi(), env);
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.out, JsonAnswer("{\"data\":{\"a\":1},\"success\":true}"));
  const std::regex line("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ zant-webapi\\[\\d+\\]: error: "
                        "cannot load module " + root.Path() + "/usr/zant/lib/webapi/ZANT\\.Broken\\.so: .*\n");
  std::smatch m;
  EXPECT_TRUE(std::regex_search(run.err, m, line)) << run.err;
  EXPECT_NE(root.Read("/var/log/zant-webapi.log").find(m.str()), std::string::npos);
  EXPECT_NE(run.err.find("error: module ZANT.HostTest.so: ZANT.HostTest 1 nocheck has no check "
                         "function and is refused\n"),
            std::string::npos);
}

TEST(EntryCgiModules, RootFollowsTheProgramsPlace) {
  Env env = BaseEnv();
  env.erase(env.begin());  // no ZANT_ROOT
  env.emplace_back("QUERY_STRING", kTest + "echo&a=2");
  EXPECT_EQ(host_blackbox::Run(gRoot->EntryCgi(), env).out,
            JsonAnswer("{\"data\":{\"a\":2},\"success\":true}"));
}

TEST(EntryCgiModules, EmptyEnvironmentStillAnswers) {
  const CgiRun run = host_blackbox::Run(gRoot->EntryCgi(), Env{});
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.out, Error(101));
}

}  // namespace
