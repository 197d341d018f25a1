// The framework's request and response objects, the CGI answer bytes, the
// in-process runner and the encoders.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "temp_root.h"
#include "zant/webapi.h"

namespace {

using ZANT::APIRequest;
using ZANT::APIResponse;
using ZANT::APIRunner;

Json::Value ParseJson(const std::string& text) {
  Json::Value value;
  Json::Reader reader;
  EXPECT_TRUE(reader.parse(text, value)) << text;
  return value;
}

// ---------------------------------------------------------------- URL parts

struct URLCase {
  const char* description;
  std::map<std::string, std::string> vars;
  std::string proto;
  std::string host;
  int port;
  std::string path;
};

class URLPartsTest : public ::testing::TestWithParam<URLCase> {};

TEST_P(URLPartsTest, DerivesPartsFromServerVariables) {
  const URLCase& c = GetParam();
  APIRequest request;
  for (const auto& var : c.vars) request.SetServerVar(var.first, var.second);
  EXPECT_EQ(c.proto, request.GetURLProto("DEF"));
  EXPECT_EQ(c.host, request.GetURLHost("DEF"));
  EXPECT_EQ(c.port, request.GetURLPort(-9));
  EXPECT_EQ(c.path, request.GetURLPath("DEF"));
}

INSTANTIATE_TEST_SUITE_P(
    Table, URLPartsTest,
    ::testing::Values(
        URLCase{"nothing set: every default", {}, "DEF", "DEF", -9, "DEF"},
        URLCase{"host header with port, https on",
                {{"HTTP_HOST", "nas.example:5001"}, {"HTTPS", "on"}, {"REQUEST_URI", "/d/s/abc?x=1"}},
                "https", "nas.example", 5001, "/d/s/abc"},
        URLCase{"host header without port falls back to SERVER_PORT",
                {{"HTTP_HOST", "nas.example"}, {"SERVER_PORT", "80"}, {"REQUEST_SCHEME", "http"}},
                "http", "nas.example", 80, "DEF"},
        URLCase{"bracketed IPv6 with port keeps the brackets",
                {{"HTTP_HOST", "[fe80::1]:8443"}, {"SERVER_PORT", "443"}, {"HTTPS", "1"}},
                "https", "[fe80::1]", 8443, "DEF"},
        URLCase{"bracketed IPv6 without port",
                {{"HTTP_HOST", "[::1]"}, {"SERVER_PORT", "5000"}}, "DEF", "[::1]", 5000, "DEF"},
        URLCase{"unclosed bracket is all host",
                {{"HTTP_HOST", "[::1:80"}, {"SERVER_PORT", "5000"}}, "DEF", "[::1:80", 5000, "DEF"},
        URLCase{"bare IPv6 has no port of its own",
                {{"HTTP_HOST", "fe80::2"}, {"SERVER_PORT", "5000"}}, "DEF", "fe80::2", 5000, "DEF"},
        URLCase{"no host header: SERVER_NAME and SERVER_PORT",
                {{"SERVER_NAME", "backend"}, {"SERVER_PORT", "8080"}}, "DEF", "backend", 8080, "DEF"},
        URLCase{"empty host before the port uses SERVER_NAME",
                {{"HTTP_HOST", ":8080"}, {"SERVER_NAME", "backend"}}, "DEF", "backend", 8080, "DEF"},
        URLCase{"non-numeric port is ignored",
                {{"HTTP_HOST", "nas:abc"}, {"SERVER_PORT", "81"}}, "DEF", "nas", 81, "DEF"},
        URLCase{"port out of range is ignored",
                {{"HTTP_HOST", "nas:70000"}, {"SERVER_PORT", "junk"}}, "DEF", "nas", -9, "DEF"},
        URLCase{"HTTPS off and plain scheme", {{"HTTPS", "off"}, {"REQUEST_SCHEME", "http"}},
                "http", "DEF", -9, "DEF"},
        URLCase{"HTTPS in capitals", {{"HTTPS", "ON"}}, "https", "DEF", -9, "DEF"},
        URLCase{"scheme variable alone", {{"REQUEST_SCHEME", "https"}}, "https", "DEF", -9, "DEF"},
        URLCase{"empty scheme sources give the default", {{"HTTPS", ""}, {"REQUEST_SCHEME", ""}},
                "DEF", "DEF", -9, "DEF"},
        URLCase{"path is kept encoded, query cut",
                {{"REQUEST_URI", "/d/f/a%2Fb?c=%20"}}, "DEF", "DEF", -9, "/d/f/a%2Fb"},
        URLCase{"query alone gives the default path", {{"REQUEST_URI", "?a=1"}}, "DEF", "DEF", -9,
                "DEF"}),
    [](const ::testing::TestParamInfo<URLCase>& info) { return "row" + std::to_string(info.index); });

TEST(InitEnvTest, OverridesReachEveryReadAndAnEmptyObjectRestores) {
  APIRequest request;
  request.SetServerVar("HTTP_HOST", "nas.example");
  request.SetServerVar("SERVER_PORT", "5000");

  Json::Value overrides(Json::objectValue);
  overrides["HTTP_HOST"] = "nas.example:5000";
  overrides["EXTRA"] = "x";
  overrides["IGNORED"] = 12;  // only strings replace variables
  request.InitEnv(overrides);
  EXPECT_EQ("nas.example:5000", request.GetEnv("HTTP_HOST", Json::Value()).asString());
  EXPECT_TRUE(request.HasEnv("EXTRA"));
  EXPECT_FALSE(request.HasEnv("IGNORED"));
  EXPECT_EQ("nas.example", request.GetURLHost(""));

  overrides.clear();
  overrides["HTTP_HOST"] = "other:7000";
  request.InitEnv(overrides);
  EXPECT_EQ(7000, request.GetURLPort(0));
  EXPECT_FALSE(request.HasEnv("EXTRA")) << "each call starts over from the server's variables";

  request.InitEnv(Json::Value(Json::objectValue));
  EXPECT_EQ("nas.example", request.GetEnv("HTTP_HOST", Json::Value()).asString());
  EXPECT_EQ(5000, request.GetURLPort(0));
}

TEST(InitEnvTest, GetEnvAnswersTheDefaultOnlyWhenUnset) {
  APIRequest request;
  request.SetServerVar("EMPTY", "");
  EXPECT_TRUE(request.HasEnv("EMPTY"));
  EXPECT_EQ(Json::Value(""), request.GetEnv("EMPTY", Json::Value()));
  EXPECT_TRUE(request.GetEnv("MISSING", Json::Value()).isNull());
}

// ------------------------------------------------------------------ cookies

struct CookieCase {
  const char* description;
  std::string header;
  std::map<std::string, std::string> expected;
};

class CookieHeaderTest : public ::testing::TestWithParam<CookieCase> {};

TEST_P(CookieHeaderTest, ParsesPairs) {
  APIRequest request;
  request.SetCookieHeader(GetParam().header);
  EXPECT_EQ(GetParam().expected, request.GetCookies()) << GetParam().description;
}

INSTANTIATE_TEST_SUITE_P(
    Table, CookieHeaderTest,
    ::testing::Values(
        CookieCase{"two pairs", "a=1; b=2", {{"a", "1"}, {"b", "2"}}},
        CookieCase{"blanks around names and values, trailing separator", "  a = 1 ;\tb=2;",
                   {{"a", "1"}, {"b", "2"}}},
        CookieCase{"pairs without = or name are skipped", "novalue; =x; a=1", {{"a", "1"}}},
        CookieCase{"first of a repeated name wins", "a=1; a=2", {{"a", "1"}}},
        CookieCase{"value may hold =", "a=x=y", {{"a", "x=y"}}},
        CookieCase{"empty value", "a=", {{"a", ""}}},
        CookieCase{"empty header", "", {}},
        CookieCase{"name with a blank inside is skipped", "bad name=1; ok=2", {{"ok", "2"}}},
        CookieCase{"name with a control byte is skipped", std::string("\x01n=v; ok=2"),
                   {{"ok", "2"}}},
        CookieCase{"binary value bytes are kept", std::string("t=\xff\x01z\x80"),
                   {{"t", std::string("\xff\x01z\x80")}}},
        CookieCase{"quotes are part of the value", "q=\"v\"", {{"q", "\"v\""}}},
        CookieCase{"sharing cookie name", "plyth-sharing-AbC=tok; id=sess",
                   {{"plyth-sharing-AbC", "tok"}, {"id", "sess"}}}),
    [](const ::testing::TestParamInfo<CookieCase>& info) { return "row" + std::to_string(info.index); });

TEST(CookieTest, HeaderReplacesEarlierValueAndLookupsUseDefault) {
  APIRequest request;
  request.SetCookie("a", "old");
  request.SetCookieHeader("a=new");
  EXPECT_EQ("new", request.GetCookie("a", "def"));
  EXPECT_TRUE(request.HasCookie("a"));
  EXPECT_FALSE(request.HasCookie("b"));
  EXPECT_EQ("def", request.GetCookie("b", "def"));
}

// --------------------------------------------------------------- parameters

bool OnlyLetters(const std::string& text) {
  for (char c : text) {
    if (!isalpha(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

struct CheckCase {
  const char* description;
  std::string params;  // JSON object
  int necessity;
  bool (*validator)(const std::string&);
  bool isSet;
  bool invalid;
  std::string value;
};

class CheckStringTest : public ::testing::TestWithParam<CheckCase> {};

TEST_P(CheckStringTest, ReportsState) {
  const CheckCase& c = GetParam();
  APIRequest request;
  request.SetParams(ParseJson(c.params));
  ZANT::APIParameter<std::string> p = request.GetAndCheckString("p", c.necessity, c.validator);
  EXPECT_EQ(c.isSet, p.IsSet());
  EXPECT_EQ(c.invalid, p.IsInvalid());
  EXPECT_EQ(c.value, p.Get());
}

INSTANTIATE_TEST_SUITE_P(
    Table, CheckStringTest,
    ::testing::Values(
        CheckCase{"required, absent", "{}", ZANT::kParamRequired, nullptr, false, true, ""},
        CheckCase{"optional, absent", "{}", ZANT::kParamOptional, nullptr, false, false, ""},
        CheckCase{"unknown necessity counts as required", "{}", 7, nullptr, false, true, ""},
        CheckCase{"string", R"({"p":"abc"})", ZANT::kParamRequired, nullptr, true, false, "abc"},
        CheckCase{"empty string is set and valid", R"({"p":""})", ZANT::kParamOptional, nullptr,
                  true, false, ""},
        CheckCase{"number is invalid", R"({"p":12})", ZANT::kParamOptional, nullptr, true, true, ""},
        CheckCase{"null is invalid", R"({"p":null})", ZANT::kParamOptional, nullptr, true, true, ""},
        CheckCase{"validator accepts", R"({"p":"abc"})", ZANT::kParamRequired, OnlyLetters, true,
                  false, "abc"},
        CheckCase{"validator rejects", R"({"p":"a1"})", ZANT::kParamRequired, OnlyLetters, true,
                  true, "a1"}),
    [](const ::testing::TestParamInfo<CheckCase>& info) { return "row" + std::to_string(info.index); });

TEST(ParamTest, LookupsAndDefaults) {
  APIRequest request;
  request.SetParams(ParseJson(R"({"a":"x","n":null})"));
  request.SetParams(Json::Value("not an object"));
  request.SetParam("b", 2);
  const Json::Value def("default");
  EXPECT_EQ(&def, &request.GetParamRef("missing", def));
  EXPECT_EQ("x", request.GetParamRef("a", def).asString());
  EXPECT_TRUE(request.HasParam("n"));
  EXPECT_TRUE(request.GetParam("n", def).isNull()) << "a null member is present, not the default";
  EXPECT_EQ(2, request.GetParam("b", def).asInt());
  EXPECT_EQ(3u, request.GetParams().size());
}

// ------------------------------------------------------- framework answer

const char kJsonHead[] = "Content-Type: application/json; charset=\"UTF-8\"\r\n";

struct AnswerCase {
  const char* description;
  void (*fill)(APIResponse&);
  std::string expected;
};

class AnswerTest : public ::testing::TestWithParam<AnswerCase> {};

TEST_P(AnswerTest, ExactBytes) {
  APIResponse response;
  GetParam().fill(response);
  EXPECT_EQ(GetParam().expected, ZANT::FormatFrameworkAnswer(response)) << GetParam().description;
}

INSTANTIATE_TEST_SUITE_P(
    Table, AnswerTest,
    ::testing::Values(
        AnswerCase{"success with data",
                   [](APIResponse& r) { r.SetSuccess(ParseJson(R"({"b":[1,2],"a":"x"})")); },
                   std::string(kJsonHead) + "\r\n" +
                       R"({"data":{"a":"x","b":[1,2]},"success":true})"},
        AnswerCase{"success without data", [](APIResponse& r) { r.SetSuccess(); },
                   std::string(kJsonHead) + "\r\n" + R"({"success":true})"},
        AnswerCase{"error", [](APIResponse& r) { r.SetError(114); },
                   std::string(kJsonHead) + "\r\n" + R"({"error":{"code":114},"success":false})"},
        AnswerCase{"error with data",
                   [](APIResponse& r) { r.SetError(120, ParseJson(R"({"name":"x"})")); },
                   std::string(kJsonHead) + "\r\n" +
                       R"({"error":{"code":120,"errors":{"name":"x"}},"success":false})"},
        AnswerCase{"no answer at all is error 100", [](APIResponse&) {},
                   std::string(kJsonHead) + "\r\n" + R"({"error":{"code":100},"success":false})"},
        AnswerCase{"UTF-8 passes unescaped",
                   [](APIResponse& r) { r.SetSuccess(Json::Value("caf\xc3\xa9 \"q\"")); },
                   std::string(kJsonHead) + "\r\n" + "{\"data\":\"caf\xc3\xa9 \\\"q\\\"\",\"success\":true}"},
        AnswerCase{"redirect",
                   [](APIResponse& r) {
                     r.SetHeader("Set-Cookie", "a=1");
                     r.SetHeader("Location", "https://nas/oo/r/x?sharing_link=y");
                     r.SetSuccess();
                   },
                   "Status: 302 Found\r\nLocation: https://nas/oo/r/x?sharing_link=y\r\n\r\n"},
        AnswerCase{"redirect uses the last Location, any case",
                   [](APIResponse& r) {
                     r.SetHeader("Location", "/first");
                     r.SetHeader("location", "/second");
                     r.SetSuccess(Json::Value(1));
                   },
                   "Status: 302 Found\r\nLocation: /second\r\n\r\n"},
        AnswerCase{"an error with Location is no redirect",
                   [](APIResponse& r) {
                     r.SetHeader("Location", "/x");
                     r.SetError(105);
                   },
                   std::string(kJsonHead) + "Location: /x\r\n\r\n" +
                       R"({"error":{"code":105},"success":false})"},
        AnswerCase{"extra headers in order, Content-Type not repeated",
                   [](APIResponse& r) {
                     r.SetHeader("X-A", "1");
                     r.SetHeader("Content-Type", "text/plain");
                     r.SetHeader("Cache-Control", "no-store");
                     r.SetSuccess(Json::Value(Json::objectValue));
                   },
                   std::string(kJsonHead) + "X-A: 1\r\nCache-Control: no-store\r\n\r\n" +
                       R"({"data":{},"success":true})"},
        AnswerCase{"raw result sent unchanged",
                   [](APIResponse& r) { r.SetRawResult(ParseJson(R"({"success":false})")); },
                   std::string(kJsonHead) + "\r\n" + R"({"success":false})"},
        AnswerCase{"a later SetError replaces a raw result",
                   [](APIResponse& r) {
                     r.SetRawResult(ParseJson(R"({"success":true})"));
                     r.SetError(101);
                   },
                   std::string(kJsonHead) + "\r\n" + R"({"error":{"code":101},"success":false})"},
        AnswerCase{"output switched off sends nothing",
                   [](APIResponse& r) {
                     r.SetSuccess();
                     r.SetEnableOutput(false);
                   },
                   ""}),
    [](const ::testing::TestParamInfo<AnswerCase>& info) { return "row" + std::to_string(info.index); });

// ------------------------------------------------------------------ runner

struct Seen {
  int calls = 0;
  std::string api;
  int version = 0;
  std::string method;
  Json::Value params;
  std::string user;
  int uid = 0;
  int auth = 0;
  std::string lang;
  bool wasCurrent = false;
};
Seen gSeen;

void RecordingHandler(APIRequest* request, APIResponse* response) {
  ++gSeen.calls;
  gSeen.api = request->GetAPI();
  gSeen.version = request->GetVersion();
  gSeen.method = request->GetMethod();
  gSeen.params = request->GetParams();
  gSeen.user = request->GetLoginUserName();
  gSeen.uid = request->GetLoginUID();
  gSeen.auth = request->GetAuthResult();
  gSeen.lang = request->GetUILanguage();
  gSeen.wasCurrent = ZANT::CurrentRequest() == request;
  response->SetSuccess(Json::Value(request->GetMethod()));
}

void ErrorHandler(APIRequest*, APIResponse* response) {
  ++gSeen.calls;
  response->SetError(1002);
}
int Allow(APIRequest*) { return 1; }
int Deny(APIRequest*) { return 0; }
int AlsoDeny(APIRequest*) { return 2; }

class RunnerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    gSeen = Seen();
    APIRunner::Clear();
    APIRunner::Register("T.API", 1, "get", RecordingHandler, Allow);
    APIRunner::Register("T.API", 1, "set", RecordingHandler);
    APIRunner::Register("T.API", 2, "get", RecordingHandler);
    APIRunner::Register("T.API", 1, "deny", RecordingHandler, Deny);
    APIRunner::Register("T.API", 1, "two", RecordingHandler, AlsoDeny);
    APIRunner::Register("T.API", 1, "fail", ErrorHandler);
  }
  void TearDown() override { APIRunner::Clear(); }
};

struct LookupCase {
  const char* description;
  const char* api;
  int version;
  const char* method;
  bool ran;
  std::string result;
};

class RunnerLookupTest : public RunnerTest, public ::testing::WithParamInterface<LookupCase> {};

TEST_P(RunnerLookupTest, ExecAnswers) {
  const LookupCase& c = GetParam();
  Json::Value result;
  EXPECT_EQ(c.ran, APIRunner::Exec(result, c.api, c.version, c.method, Json::Value(), "anonymous"));
  EXPECT_EQ(ParseJson(c.result), result);
  EXPECT_EQ(c.ran ? 1 : 0, gSeen.calls);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RunnerLookupTest,
    ::testing::Values(
        LookupCase{"found, check allows", "T.API", 1, "get", true,
                   R"({"success":true,"data":"get"})"},
        LookupCase{"found, no check", "T.API", 2, "get", true, R"({"success":true,"data":"get"})"},
        LookupCase{"handler error passes through", "T.API", 1, "fail", true,
                   R"({"success":false,"error":{"code":1002}})"},
        LookupCase{"unknown api", "T.Other", 1, "get", false,
                   R"({"success":false,"error":{"code":102}})"},
        LookupCase{"unknown method", "T.API", 1, "nope", false,
                   R"({"success":false,"error":{"code":103}})"},
        LookupCase{"unknown version", "T.API", 3, "get", false,
                   R"({"success":false,"error":{"code":104}})"},
        LookupCase{"unknown version is reported before the method", "T.API", 3, "nope", false,
                   R"({"success":false,"error":{"code":104}})"},
        LookupCase{"method of another version only", "T.API", 2, "set", false,
                   R"({"success":false,"error":{"code":103}})"},
        LookupCase{"check answers 0", "T.API", 1, "deny", false,
                   R"({"success":false,"error":{"code":105}})"},
        LookupCase{"check answers 2", "T.API", 1, "two", false,
                   R"({"success":false,"error":{"code":105}})"}),
    [](const ::testing::TestParamInfo<LookupCase>& info) { return "row" + std::to_string(info.index); });

TEST_F(RunnerTest, RegisterReplacesAndUnregisterRemoves) {
  APIRunner::Register("T.API", 1, "get", ErrorHandler);
  Json::Value result;
  APIRunner::Exec(result, "T.API", 1, "get", Json::Value(), "");
  EXPECT_EQ(1002, result["error"]["code"].asInt());
  APIRunner::Unregister("T.API", 1, "get");
  APIRunner::Exec(result, "T.API", 1, "get", Json::Value(), "");
  EXPECT_EQ(103, result["error"]["code"].asInt()) << "v1 still has other methods";
}

TEST_F(RunnerTest, ExecBuildsTheNestedRequest) {
  Json::Value result;
  ASSERT_TRUE(APIRunner::Exec(result, "T.API", 2, "get", ParseJson(R"({"path":"link:AbC","n":1})"),
                              "anonymous"));
  EXPECT_EQ("T.API", gSeen.api);
  EXPECT_EQ(2, gSeen.version);
  EXPECT_EQ("get", gSeen.method);
  EXPECT_EQ(ParseJson(R"({"path":"link:AbC","n":1})"), gSeen.params);
  EXPECT_TRUE(gSeen.wasCurrent);
  EXPECT_EQ("enu", gSeen.lang) << "no outer request: the default language";
  EXPECT_EQ(nullptr, ZANT::CurrentRequest());
}

TEST_F(RunnerTest, ExecInheritsTheOuterLanguageAndRestoresTheOuterRequest) {
  APIRequest outer;
  outer.SetUILanguage("ger");
  ZANT::CurrentRequestScope scope(&outer);
  Json::Value result;
  APIRunner::Exec(result, "T.API", 2, "get", Json::Value(), "");
  EXPECT_EQ("ger", gSeen.lang);
  EXPECT_EQ(&outer, ZANT::CurrentRequest());
}

TEST_F(RunnerTest, DispatchAnswersOnTheResponseAndMakesTheRequestCurrent) {
  APIRequest request;
  request.SetAPI("T.API", 1, "deny");
  APIResponse response;
  APIRunner::Dispatch(&request, &response);
  EXPECT_EQ(105, response.GetErrorCode());

  request.SetAPI("T.API", 1, "set");
  APIRunner::Dispatch(&request, &response);
  EXPECT_TRUE(response.IsSuccess());
  EXPECT_TRUE(gSeen.wasCurrent);
  EXPECT_EQ(nullptr, ZANT::CurrentRequest());
}

// Exec's `user` against the user database.
struct UserCase {
  const char* description;
  const char* user;
  std::string login;
  int uid;
  int auth;
};

class ExecUserTest : public RunnerTest, public ::testing::WithParamInterface<UserCase> {};

TEST_P(ExecUserTest, MapsUserToSignIn) {
  platform_test::TempRoot root;
  root.WriteFile("/usr/zant/etc/users",
                 "alice:1026:100:Alice:/home/alice::\n"
                 "admin:1024:101:Admin:/home/admin:admin:\n"
                 "bob:1027:100:Bob:/home/bob:disabled:\n");
  const UserCase& c = GetParam();
  Json::Value result;
  ASSERT_TRUE(APIRunner::Exec(result, "T.API", 1, "set", Json::Value(), c.user));
  EXPECT_EQ(c.login, gSeen.user);
  EXPECT_EQ(c.uid, gSeen.uid);
  EXPECT_EQ(c.auth, gSeen.auth);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ExecUserTest,
    ::testing::Values(UserCase{"null user", nullptr, "", -1, ZANT::kAuthNone},
                      UserCase{"empty user", "", "", -1, ZANT::kAuthNone},
                      UserCase{"anonymous", "anonymous", "anonymous", -1, ZANT::kAuthNone},
                      UserCase{"ordinary user", "alice", "alice", 1026, ZANT::kAuthUser},
                      UserCase{"administrator", "admin", "admin", 1024, ZANT::kAuthAdmin},
                      UserCase{"disabled user still runs as named", "bob", "bob", 1027,
                               ZANT::kAuthUser},
                      UserCase{"unknown user", "ghost", "ghost", -1, ZANT::kAuthUser}),
    [](const ::testing::TestParamInfo<UserCase>& info) { return "row" + std::to_string(info.index); });

// ----------------------------------------------------------------- encoders

struct EncodeCase {
  std::string input;
  std::string expected;
};

class URLEncodeTest : public ::testing::TestWithParam<EncodeCase> {};
TEST_P(URLEncodeTest, Encodes) {
  EXPECT_EQ(GetParam().expected, ZANT::WebAPIUtil::URLEncode(GetParam().input));
}
INSTANTIATE_TEST_SUITE_P(
    Table, URLEncodeTest,
    ::testing::Values(EncodeCase{"", ""}, EncodeCase{"AZaz09-_.~", "AZaz09-_.~"},
                      EncodeCase{"file_id=12 3", "file_id%3D12%203"},
                      EncodeCase{"a/b?c&d+e%", "a%2Fb%3Fc%26d%2Be%25"},
                      EncodeCase{"\"x\"", "%22x%22"},
                      EncodeCase{std::string("\xc3\xa9\x00\xff", 4), "%C3%A9%00%FF"}));

struct DecodeCase {
  std::string input;
  bool plusAsSpace;
  bool ok;
  std::string expected;
};

class URLDecodeTest : public ::testing::TestWithParam<DecodeCase> {};
TEST_P(URLDecodeTest, Decodes) {
  std::string out = "untouched";
  EXPECT_EQ(GetParam().ok, ZANT::WebAPIUtil::URLDecode(GetParam().input, out, GetParam().plusAsSpace));
  EXPECT_EQ(GetParam().expected, out);
}
INSTANTIATE_TEST_SUITE_P(
    Table, URLDecodeTest,
    ::testing::Values(DecodeCase{"a%20b+c", true, true, "a b c"},
                      DecodeCase{"a%20b+c", false, true, "a b+c"},
                      DecodeCase{"%22x%22%c3%A9", false, true, "\"x\"\xc3\xa9"},
                      DecodeCase{"%00", false, true, std::string(1, '\0')},
                      DecodeCase{"", false, true, ""},
                      DecodeCase{"bad%", false, false, "untouched"},
                      DecodeCase{"bad%4", false, false, "untouched"},
                      DecodeCase{"bad%G1", false, false, "untouched"}));

struct HtmlCase {
  std::string input;
  bool escapeNewline;
  std::string expected;
};

class EncodeHtmlTest : public ::testing::TestWithParam<HtmlCase> {};
TEST_P(EncodeHtmlTest, Escapes) {
  EXPECT_EQ(GetParam().expected,
            ZANT::WebAPIUtil::EncodeHtml(GetParam().input, GetParam().escapeNewline));
}
INSTANTIATE_TEST_SUITE_P(
    Table, EncodeHtmlTest,
    ::testing::Values(HtmlCase{"", false, ""},
                      HtmlCase{"<>&\"'", false, "&lt;&gt;&amp;&quot;&#39;"},
                      HtmlCase{"&amp;", false, "&amp;amp;"},
                      HtmlCase{"a\nb", false, "a\nb"},
                      HtmlCase{"a\nb", true, "a&#10;b"},
                      HtmlCase{"caf\xc3\xa9", true, "caf\xc3\xa9"}));

}  // namespace
