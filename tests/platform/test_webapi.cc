// The framework's request and response objects, the CGI answer bytes, the
// in-process runner, the encoders and the sign-in state WebMan reports; the
// user database they read (base-library lookups, password hashes, the
// changes made by the administration tools); page templates, URL splitting
// and modification times of web resources.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utime.h>

#include <cstdlib>
#include <ctime>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "harness.h"
#include "zant/crypto.h"
#include "zant/userdb.h"
#include "zant/vlibc.h"
#include "zant/webapi.h"
#include "zant/webman.h"
#include "zant/webutils.h"

namespace {

using plyth_test::Parse;

using ZANT::APIRequest;
using ZANT::APIResponse;
using ZANT::APIRunner;
using Vars = std::map<std::string, std::string>;
using ZANT::UserDB::Status;
using ZANT::UserDB::User;
namespace db = ZANT::UserDB;

const char kUsersFile[] = "/usr/zant/etc/users";
// "secret" with 100000 iterations and salt 00112233...eeff.
const std::string kSecretHash =
    "pbkdf2-sha256$100000$00112233445566778899aabbccddeeff$"
    "f92d0c0b7758f48a976587412c2bf21b7f1dae21875133fda2983fa4cbf1ea9d";

const std::string kDatabase =
    "# name:uid:gid:full name:home:flags:password\n"
    "admin:1024:101:System Admin:/homes/admin:admin:" + kSecretHash + "\n\n"
    "alice:1026:100:Alice Liddell:/homes/alice::\n"
    "bob:1027:100:Bob:/home/bob:disabled,admin:" + kSecretHash + "\n"
    "carol:1028:100::/home/carol:future:\n"
    "#dave:1029:100:Dave:/home/dave::\n"
    "short:1030:100:Short:/home/short:\n"
    "alice:1999:100:Second Alice:/x::\n";

TEST(URLParts, FromServerVariables) {
  // expected: "scheme host port path", each part's default being "-" (port -1).
  const struct Row { const char* d; Vars vars; std::string expected; } rows[] = {
      {"nothing set", {}, "- - -1 -"},
      {"host:port, HTTPS on, query cut",
       {{"HTTP_HOST", "nas:5001"}, {"HTTPS", "on"}, {"REQUEST_URI", "/d/s/a%2Fb?x=1"}},
       "https nas 5001 /d/s/a%2Fb"},
      {"host alone, SERVER_PORT, HTTPS off",
       {{"HTTP_HOST", "nas"}, {"SERVER_PORT", "80"}, {"HTTPS", "off"}, {"REQUEST_SCHEME", "http"}},
       "http nas 80 -"},
      {"scheme variable alone", {{"REQUEST_SCHEME", "https"}}, "https - -1 -"},
      {"bracketed IPv6 with port", {{"HTTP_HOST", "[fe80::1]:8443"}}, "- [fe80::1] 8443 -"},
      {"bracketed IPv6 alone", {{"HTTP_HOST", "[::1]"}, {"SERVER_PORT", "5000"}}, "- [::1] 5000 -"},
      {"SERVER_NAME fallback", {{"SERVER_NAME", "be"}, {"SERVER_PORT", "8080"}}, "- be 8080 -"},
      {"bad port ignored", {{"HTTP_HOST", "nas:70000"}, {"SERVER_PORT", "x"}}, "- nas -1 -"},
      {"query alone", {{"REQUEST_URI", "?a=1"}}, "- - -1 -"}};
  for (const Row& row : rows) {
    APIRequest r;
    for (const auto& var : row.vars) r.SetServerVar(var.first, var.second);
    EXPECT_EQ(row.expected, r.GetURLProto("-") + " " + r.GetURLHost("-") + " " + std::to_string(r.GetURLPort(-1)) +
                                " " + r.GetURLPath("-")) << row.d;
  }
}

TEST(Cookies, ParsesHeader) {
  const struct Row { const char* d; std::string header; Vars expected; } rows[] = {
      {"blanks, trailing ;, = in value", "  a = 1 ;\tb=x=y;", {{"a", "1"}, {"b", "x=y"}}},
      {"malformed pairs skipped", "novalue; =x; bad name=1; a=", {{"a", ""}}},
      {"first of a name wins", "a=1; a=2", {{"a", "1"}}},
      {"binary value kept, control-byte name skipped", "t=\xff\x01z\x80; \x01n=v", {{"t", "\xff\x01z\x80"}}}};
  for (const Row& row : rows) {
    APIRequest request;
    request.SetCookieHeader(row.header);
    EXPECT_EQ(row.expected, request.GetCookies()) << row.d;
  }
}

// Only optional texts without a validator are asked for; a text and a value
// that is no text are pinned by the getjs tests.
TEST(CheckString, AbsentOptionalIsValidAndEmpty) {
  ZANT::APIParameter<std::string> p = APIRequest().GetAndCheckString("p", ZANT::kParamOptional, nullptr);
  EXPECT_EQ(std::string(p.IsSet() ? "set" : "unset") + (p.IsInvalid() ? " invalid " : " valid ") + p.Get(),
            "unset valid ");
}

// Success with and without data and the output switched off are pinned by the
// host's and the module's answers, a raw result by the fixture's.
TEST(Answer, ExactBytes) {
  const struct Row { const char* d; void (*fill)(APIResponse&); std::string expected; } rows[] = {
      {"redirect, last Location", [](APIResponse& r) { r.SetHeader("Location", "/1");
         r.SetHeader("Set-Cookie", "a=1"); r.SetHeader("location", "/x?y"); r.SetSuccess(); },
       "Status: 302 Found\r\nLocation: /x?y\r\n\r\n"},
      {"error with Location, headers in order", [](APIResponse& r) { r.SetHeader("Location", "/x");
         r.SetHeader("Content-Type", "text/plain"); r.SetHeader("X-A", "1"); r.SetError(105); },
       "Content-Type: application/json; charset=\"UTF-8\"\r\nLocation: /x\r\nX-A: 1\r\n\r\n"
       R"({"error":{"code":105},"success":false})"}};
  for (const Row& row : rows) {
    APIResponse response;
    row.fill(response);
    EXPECT_EQ(row.expected, ZANT::FormatFrameworkAnswer(response)) << row.d;
  }
}

struct Seen { Json::Value params; std::string user, lang; int uid, auth; bool wasCurrent; } gSeen;

void Recording(APIRequest* request, APIResponse* response) {
  gSeen = {request->GetParams(),   request->GetLoginUserName(), request->GetUILanguage(),
           request->GetLoginUID(), request->GetAuthResult(),    ZANT::CurrentRequest() == request};
  response->SetSuccess(Json::Value(request->GetMethod()));
}

class UserDatabase : public ::testing::Test {
 protected:
  void SetUp() override { root_.WriteFile(kUsersFile, kDatabase); }
  plyth_test::ApplianceRoot root_;
};

class Runner : public UserDatabase {
 protected:
  void SetUp() override {
    UserDatabase::SetUp();
    APIRunner::Register("T.API", 1, "get", Recording, [](APIRequest*) { return 1; });
    APIRunner::Register("T.API", 2, "get", Recording);
    APIRunner::Register("T.API", 1, "deny", Recording, [](APIRequest*) { return 0; });
    APIRunner::Register("T.API", 1, "fail", [](APIRequest*, APIResponse* r) { r->SetError(1002); });
  }
  void TearDown() override { APIRunner::Clear(); }
};

TEST_F(Runner, AnswersAndMapsANestedRequestsUserInheritingTheLanguage) {
  const struct Row { const char* api; int version; const char* method; bool ran; const char* result; } rows[] = {
      {"T.API", 1, "get", true, R"({"success":true,"data":"get"})"},
      {"T.API", 1, "fail", true, R"({"success":false,"error":{"code":1002}})"},
      {"T.Other", 1, "get", false, R"({"success":false,"error":{"code":102}})"},
      {"T.API", 2, "deny", false, R"({"success":false,"error":{"code":103}})"},
      {"T.API", 3, "nope", false, R"({"success":false,"error":{"code":104}})"},
      {"T.API", 1, "deny", false, R"({"success":false,"error":{"code":105}})"}};
  for (const Row& row : rows) {
    Json::Value result;
    EXPECT_EQ(row.ran, APIRunner::Exec(result, row.api, row.version, row.method, Json::Value(), ""));
    EXPECT_EQ(Parse(row.result), result) << row.method;
  }
  const struct Nested { const char* user; std::string login; int uid, auth; } nested[] = {
      {nullptr, "", -1, ZANT::kAuthNone},
      {"anonymous", "anonymous", -1, ZANT::kAuthNone},
      {"alice", "alice", 1026, ZANT::kAuthUser},
      {"admin", "admin", 1024, ZANT::kAuthAdmin},
      {"ghost", "ghost", -1, ZANT::kAuthUser}};
  APIRequest outer;
  outer.SetUILanguage("ger");
  ZANT::CurrentRequestScope scope(&outer);
  for (const Nested& row : nested) {
    gSeen = Seen();
    Json::Value result;
    ASSERT_TRUE(APIRunner::Exec(result, "T.API", 2, "get", Parse(R"({"path":"link:A"})"), row.user));
    EXPECT_EQ(row.login + " " + std::to_string(row.uid) + " " + std::to_string(row.auth) + " ger current",
              gSeen.user + " " + std::to_string(gSeen.uid) + " " + std::to_string(gSeen.auth) + " " + gSeen.lang +
                  (gSeen.wasCurrent ? " current" : " not current"));
    EXPECT_EQ(Parse(R"({"path":"link:A"})"), gSeen.params);
    EXPECT_EQ(&outer, ZANT::CurrentRequest());
  }
}

std::string Html(const std::string& s) { return ZANT::WebAPIUtil::EncodeHtml(s, false); }

TEST(Codec, Converts) {
  const struct Row { std::string (*fn)(const std::string&); std::string input, expected; } rows[] = {
      {ZANT::WebAPIUtil::URLEncode, "AZaz09-_.~", "AZaz09-_.~"},
      {ZANT::WebAPIUtil::URLEncode, std::string("a=1 /?&+%\"\xc3\xa9\x00\xff", 14),
       "a%3D1%20%2F%3F%26%2B%25%22%C3%A9%00%FF"},
      {Html, "<>&\"' &amp;\n", "&lt;&gt;&amp;&quot;&#39; &amp;amp;\n"}};
  for (const Row& row : rows) EXPECT_EQ(row.expected, row.fn(row.input));
}

TEST_F(UserDatabase, CheckAuthorizedAnswers) {
  // named: USERNAME, whom the web server names (null: unset).
  const struct Row { const char* d; bool current; int uid, auth; const char *user, *named; int mask, want; } rows[] = {
      {"no request", false, 1026, 1, "alice", "alice", 31, -1},
      {"administrator", true, 1024, 2, "admin", nullptr, 31, 2},
      {"uid alone counts", true, 1026, -1, "", nullptr, 31, 1},
      {"admin-only privilege, user", true, 1026, 1, "alice", nullptr, 0x100, -3},
      {"web server names enabled user", true, -1, -7, "", "alice", 31, -7},
      {"web server names disabled user", true, -1, -7, "", "bob", 31, -2},
      {"web server names unknown user", true, -1, -7, "", "ghost", 31, -2},
      {"auth -7 without USERNAME", true, -1, -7, "", nullptr, 31, -1}};
  for (const Row& row : rows) {
    row.named != nullptr ? setenv("USERNAME", row.named, 1) : unsetenv("USERNAME");
    APIRequest request;
    request.SetLogin(row.user, row.uid, row.auth);
    ZANT::CurrentRequestScope scope(row.current ? &request : nullptr);
    EXPECT_EQ(row.want, WebMan(true).CheckAuthorized(row.mask, CGI_POSITION_WEBAPI, false)) << row.d;
  }
  unsetenv("USERNAME");
}

User NewUser(const std::string& name, uid_t uid = 0, const std::string& fullName = "") {
  return User{name, uid, 100, fullName, "/h", false, false, ""};
}

TEST_F(UserDatabase, LookupFindsRecordOrSetsErrorFileOpenWhenUnreadable) {
  // expected: "0 name:uid:full name:home:<admin><disabled>", or "-1, error <code>".
  const std::string noSuchUser = "-1, error " + std::to_string(VLIBC_ERR_NO_SUCH_USER);
  const struct Row { const char* name; std::string expected; } rows[] = {
      {"alice", "0 alice:1026:Alice Liddell:/homes/alice:00"},  // the first line of a name
      {"bob", "0 bob:1027:Bob:/home/bob:11"},
      {"carol", "0 carol:1028::/home/carol:00"},  // unknown flags ignored
      {"mallory", noSuchUser},
      {"short", noSuchUser},  // too few fields
  };
  for (const Row& row : rows) {
    VLIBCErrSet(VLIBC_ERR_NONE, "", 0);
    PZANTUSER u = nullptr;
    const std::string rc = std::to_string(ZANTUserGet(row.name, &u));
    EXPECT_EQ(row.expected, u == nullptr ? rc + ", error " + std::to_string(VLIBCErrGet())
                                         : rc + " " + u->szName + ":" + std::to_string(u->uid) + ":" + u->szFullName +
                                               ":" + u->szHome + ":" + std::to_string(u->isAdmin) +
                                               std::to_string(u->isDisabled));
    ZANTUserFree(u);
  }
  PZANTUSER user = nullptr;
  root_.Remove(kUsersFile);
  root_.MakeDir(kUsersFile);
  EXPECT_EQ(-1, ZANTUserGet("alice", &user));
  EXPECT_EQ(VLIBC_ERR_FILE_OPEN, VLIBCErrGet());
  EXPECT_STREQ("users.cc", VLIBCErrorGetFile());
  User added = NewUser("x");
  EXPECT_EQ(Status::kFileOpen, db::AddUser(&added, ""));
}

TEST_F(UserDatabase, AddPicksNextUidOrRefusesRemoveDeletesFirstLineOfName) {
  User user = NewUser("erin", 0, "Erin");
  ASSERT_EQ(Status::kOk, db::AddUser(&user, ""));
  EXPECT_EQ(2000u, user.uid);  // one past the highest uid
  std::string expected = kDatabase + "erin:2000:100:Erin:/h::\n";
  EXPECT_EQ(expected, root_.ReadFile(kUsersFile));
  User taken = NewUser("bob"), uid = NewUser("frank", 1027), bad = NewUser("x", 0, "F\nN");
  EXPECT_EQ(Status::kUserExists, db::AddUser(&taken, "pw"));
  EXPECT_EQ(Status::kUidInUse, db::AddUser(&uid, ""));
  EXPECT_EQ(Status::kBadParameter, db::AddUser(&bad, ""));
  ASSERT_EQ(Status::kOk, db::RemoveUser("alice"));
  EXPECT_EQ(Status::kNoSuchUser, db::RemoveUser("dave"));
  expected.erase(expected.find("alice:1026"), expected.find("bob:") - expected.find("alice:1026"));
  EXPECT_EQ(expected, root_.ReadFile(kUsersFile)) << "the refusals changed nothing, the first alice line went";
}

// Known answers: SHA-256 of "abc" (FIPS 180-2), HMAC case 2 of RFC 4231 and
// PBKDF2-HMAC-SHA256("passwd", "salt", 1 iteration); fresh salts; malformed hashes.
TEST(Crypto, KnownAnswersFreshSaltAndMalformedHashes) {
  EXPECT_EQ(ZANT::Sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(ZANT::HmacSha256Hex("Jefe", "what do ya want for nothing?"),
            "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
  const std::string known = "pbkdf2-sha256$1$73616c74$55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc";
  EXPECT_TRUE(db::CheckPassword("passwd", known));
  std::string fresh = db::HashPassword("pa:ss$word");
  EXPECT_TRUE(std::regex_match(fresh, std::regex("pbkdf2-sha256\\$100000\\$[0-9a-f]{32}\\$[0-9a-f]{64}"))) << fresh;
  EXPECT_NE(fresh, db::HashPassword("pa:ss$word"));
  const std::string h = "$55ac046e56e3089fec1691c22544b605";  // a prefix of the right hash
  EXPECT_TRUE(db::CheckPassword("passwd", "pbkdf2-sha256$1$73616c74" + h));
  for (std::string bad : {"pbkdf2-sha1$1$73616c74" + h, "pbkdf2-sha256$0$73616c74" + h,
                          "pbkdf2-sha256$1$7361zc74" + h, "pbkdf2-sha256$1$73616c7" + h,
                          std::string("pbkdf2-sha256$1$73616c74$"), "pbkdf2-sha256$1$73616c74" + h + "$"})
    EXPECT_FALSE(db::CheckPassword("passwd", bad)) << bad;
}

TEST_F(UserDatabase, SignInAuthenticates) {
  const struct Row { const char* name; const char* password; Status expected; } rows[] = {
      {"admin", "secret", Status::kOk},
      {"alice", "", Status::kWrongPassword},  // no password set
      {"bob", "secret", Status::kDisabled},
      {"bob", "x", Status::kWrongPassword},
      {"mallory", "secret", Status::kNoSuchUser}};
  for (const Row& row : rows) {
    User user;
    EXPECT_EQ(row.expected, db::Authenticate(row.name, row.password, &user)) << row.name << " " << row.password;
    EXPECT_EQ(row.expected == Status::kOk ? 1024u : 0u, user.uid);
  }
}

TEST(UserDatabaseConcurrency, ForkedWritersLoseNothing) {
  plyth_test::ApplianceRoot root;
  const int kWriters = 4, kEach = 8;
  for (int w = 0; w < kWriters; ++w) {
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      int failures = 0;
      for (int i = 0; i < kEach; ++i) {
        User user = NewUser("w" + std::to_string(w) + "u" + std::to_string(i));
        failures += db::AddUser(&user, "") != Status::kOk;
      }
      _exit(failures);
    }
  }
  for (int w = 0; w < kWriters; ++w) {
    int status = 0;
    ASSERT_GT(wait(&status), 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  std::vector<User> users;
  ASSERT_EQ(Status::kOk, db::ListUsers(&users));
  std::set<uid_t> uids;
  for (const User& u : users) uids.insert(u.uid);
  EXPECT_EQ(static_cast<size_t>(kWriters * kEach), users.size());
  EXPECT_EQ(users.size(), uids.size());
  EXPECT_EQ(1026u + kWriters * kEach - 1, *uids.rbegin());  // first automatic uid 1026
  struct stat status;
  ASSERT_EQ(0, stat(root.Host(kUsersFile).c_str(), &status));
  EXPECT_EQ(0600u, status.st_mode & 07777);
}

TEST(Template, Fills) {
  const Json::Value values = Parse(R"({"TITLE":"A <b> & \"c\"","EMPTY":"","NUM":5,"NUL":"a\u0000b",
                                       "LOOP":"{{TITLE}}"})");
  const struct Row { const char* d; std::string text, expected; } rows[] = {
      {"inserted as it stands, repeated", "<t>{{TITLE}}{{EMPTY}}{{TITLE}}</t>", "<t>A <b> & \"c\"A <b> & \"c\"</t>"},
      {"missing key, other case, number", "[{{MISSING}}{{title}}{{NUM}}]", "[]"},
      {"NUL bytes kept", "[{{NUL}}]", std::string("[a\0b]", 5)},
      {"inserted text not filled again", "{{LOOP}}", "{{TITLE}}"},
      {"malformed braces kept", "a {{TITLE b {{ }} {{}} {{ TITLE }} f(){{b();}}",
       "a {{TITLE b {{ }} {{}} {{ TITLE }} f(){{b();}}"},
      {"extra braces around a placeholder", "{{{EMPTY}}}", "{}"},
      {"dangling {{ at the end", "x{{EMPTY}}{{", "x{{"}};
  for (const Row& row : rows) {
    WebUtils::Template tpl;
    tpl.SetText(row.text);
    EXPECT_EQ(row.expected, tpl.ApplyValues(values)) << row.d;
  }
}

TEST(ParseUrl, Splits) {
  // A refused URL leaves the outputs alone ("-"). strchr() matches the NUL that
  // ends its set: a NUL byte in a host name or an IPv6 zone must still refuse the URL.
  const struct Row { std::string url; bool ok; const char *protocol = "-", *host = "-", *port = "-"; } rows[] = {
      {"http://nas.example.com", true, "http", "nas.example.com", "80"},
      {"HTTPS://NAS/", true, "HTTPS", "NAS", "443"},
      {"ftp://nas/x", true, "ftp", "nas", ""},
      {"http://nas:0080/d/s/abc", true, "http", "nas", "80"},
      {"https://nas:5001?x=1", true, "https", "nas", "5001"},
      {"https://nas/path?q=http://other:99/", true, "https", "nas", "443"},
      {"https://evil.com@user:pw@nas:7/", true, "https", "nas", "7"},
      {"https://[fe80::1%25eth0]:5001/", true, "https", "[fe80::1%25eth0]", "5001"},
      {"nas:5000/x", false},
      {"http://:80", false},
      {"http://nas:+80", false},
      {"http://nas:65536", false},
      {"http://[::1]x", false},
      {"http://nas\r\nX-Evil: 1", false},
      {"http://evil.com\\@nas/", false},
      {std::string("http://nas\0evil/", 16), false},
      {std::string("https://[fe80::1%25e\0th0]:443/", 30), false},
  };
  for (const Row& row : rows) {
    std::string protocol = "-", host = "-", port = "-";
    ASSERT_EQ(row.ok, WebUtils::ParseURL(row.url, protocol, host, port)) << row.url;
    EXPECT_EQ(row.protocol + std::string(" ") + row.host + " " + row.port, protocol + " " + host + " " + port)
        << row.url;
  }
}

TEST(ModifyTime, AbsoluteUnderRootOrNow) {
  plyth_test::ApplianceRoot root;
  for (const char* path : {"/var/packages/X/b.css", "/webman/c.js"}) {
    root.WriteFile(path, "x");
    struct utimbuf times = {1400000001, 1400000001};
    ASSERT_EQ(0, utime(root.Host(path).c_str(), &times));
  }
  EXPECT_EQ("1400000001", WebUtils::GetModifyTime("/var/packages/X/b.css"));
  // A relative path is under the web root, not the root: neither has a file, so the answer is now.
  for (const char* path : {"webman/c.js", "webman/missing.js"}) {
    const long long before = time(nullptr);
    const long long answer = std::stoll(WebUtils::GetModifyTime(path));
    EXPECT_LE(before, answer) << path;
    EXPECT_GE(time(nullptr), answer) << path;
  }
}

}  // namespace
