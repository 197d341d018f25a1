// Sign-in sessions and the sign-in throttle: the store and the throttle's
// window, then sign-in, the request's user, sign-out and "login" answering
// 121 per account and address through the framework in-process. (A burst
// from many connections at once goes through the whole stack in
// integration_links.py.)
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <regex>
#include <vector>

#include "handle_form.h"
#include "harness.h"
#include "zant/userdb.h"
#include "zant_host/host.h"
#include "zant_host/session.h"
#include "zant_host/sign_in_throttle.h"

namespace {

using host_test::HandleForm;
using zant_host::CgiVars;
using zant_host::kSessionLifetime;
using zant_host::ThrottleVerdict;

TEST(HostSession, StoreWritesLoadsExpiresAndSweeps) {
  plyth_test::ApplianceRoot root;
  zant_host::SessionStore store;
  zant_host::Session made, late, loaded;
  ASSERT_TRUE(store.Create("alice", 1026, false, "ger", 1000, &made));
  ASSERT_TRUE(store.Create("b", 2, true, "", 2000, &late));
  // Named by the hash of the id: the directory listing gives no usable id away.
  const std::string file = "/var/lib/zant/sessions/" + zant_host::Sha256Hex(made.id);
  struct stat st;
  ASSERT_EQ(stat(root.Host(file).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  ASSERT_TRUE(store.Load(made.id, 1000 + kSessionLifetime - 1, &loaded));
  EXPECT_EQ(loaded.user + " " + std::to_string(loaded.uid) + " " + loaded.token + " " + loaded.lang,
            "alice 1026 " + made.token + " ger");
  root.WriteFile("/var/lib/zant/sessions/notes", "kept");
  store.Sweep(1000 + kSessionLifetime);
  EXPECT_EQ(root.ReadFile(file) + root.ReadFile("/var/lib/zant/sessions/notes"), "kept");
  EXPECT_FALSE(store.Load(late.id, 2000 + kSessionLifetime, &loaded));
  EXPECT_EQ(root.ReadFile("/var/lib/zant/sessions/" + zant_host::Sha256Hex(late.id)), "") << "expired: removed";
  for (const std::string& id : {std::string(63, 'a'), std::string(64, 'A'), std::string(64, '0'),
                                "../../../../etc/passwd" + std::string(42, 'a')})
    EXPECT_FALSE(store.Load(id, 0, &loaded)) << id;
  const std::string id(64, 'b');
  for (const char* damaged : {"[]", "{\"user\":1,\"uid\":1,\"token\":\"t\",\"expires\":99999999999}",
                              "{\"user\":\"u\",\"uid\":-1,\"token\":\"t\",\"expires\":99999999999}"}) {
    root.WriteFile("/var/lib/zant/sessions/" + zant_host::Sha256Hex(id), damaged);
    EXPECT_FALSE(store.Load(id, 0, &loaded)) << damaged;
  }
}

constexpr int64_t kStart = 1700000000;

TEST(SignInThrottle, FiveFailuresCloseTheAccountToThatAddressForTheWindow) {
  plyth_test::ApplianceRoot root;
  const zant_host::SignInThrottle throttle;
  for (int i = 0; i < zant_host::kSignInFailureLimit; ++i) {
    EXPECT_EQ(throttle.Check("alice", "203.0.113.9", kStart + i), ThrottleVerdict::kAllowed) << i;
    EXPECT_EQ(throttle.Record("alice", "203.0.113.9", kStart + i), ThrottleVerdict::kAllowed) << i;
  }
  const ThrottleVerdict kAllowed = ThrottleVerdict::kAllowed, kThrottled = ThrottleVerdict::kThrottled;
  const struct Row { const char *account, *client; int64_t at; ThrottleVerdict verdict; } rows[] = {
      {"alice", "203.0.113.9", kStart + 5, kThrottled},
      {"alice", "198.51.100.7", kStart + 5, kAllowed},
      {"Alice", "203.0.113.9", kStart + 5, kAllowed},
      {"alice", "203.0.113.9", kStart + 599, kThrottled},  // the first failure counts up to second kStart + 599
      {"alice", "203.0.113.9", kStart + 600, kAllowed}};
  for (const Row& row : rows) {
    EXPECT_EQ(throttle.Check(row.account, row.client, row.at), row.verdict)
        << row.account << " from " << row.client << " at +" << row.at - kStart;
  }
  EXPECT_EQ(throttle.Record("alice", "203.0.113.9", kStart + 6), ThrottleVerdict::kThrottled) << "nothing recorded";
  EXPECT_EQ(throttle.Check("alice", "203.0.113.9", kStart + 600), ThrottleVerdict::kAllowed);

  root.MakeDir("/var/lib/zant/elsewhere.db");
  EXPECT_EQ(zant_host::SignInThrottle(root.Host("/var/lib/zant/elsewhere.db")).Check("a", "b", kStart),
            ThrottleVerdict::kUnavailable);
}

// --- Through the framework: HandleRequest with the built-in sign-in API ---

const std::string kHead = "Content-Type: application/json; charset=\"UTF-8\"\r\n";
const std::string kCleared = kHead +
    "Set-Cookie: id=; Expires=Thu, 01 Jan 1970 00:00:00 GMT; Path=/; HttpOnly; SameSite=Lax\r\n\r\n{\"success\":true}";
const std::string kLogin = "api=ZANT.Core.Auth&version=1&method=login";
const std::string kLogout = "api=ZANT.Core.Auth&version=1&method=logout";
const std::string kWho = "api=T&version=1&method=whoami";

std::string Error(int code) {
  return kHead + "\r\n{\"error\":{\"code\":" + std::to_string(code) + "},\"success\":false}";
}
// The answer of WhoAmI: "auth|uid|user|lang|USERNAME|token".
std::string Who(const std::string& data) { return kHead + "\r\n{\"data\":\"" + data + "\",\"success\":true}"; }

void WhoAmI(ZANT::APIRequest* r, ZANT::APIResponse* response) {
  const char* username = getenv("USERNAME");
  response->SetSuccess(Json::Value(std::to_string(r->GetAuthResult()) + "|" + std::to_string(r->GetLoginUID()) + "|" +
                                   r->GetLoginUserName() + "|" + r->GetUILanguage() + "|" +
                                   (username ? username : "null") + "|" + r->GetSessionToken()));
}

class SignIn : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string hash = ZANT::UserDB::HashPassword("1.50", 1);
    root_.WriteFile("/usr/zant/etc/users", "alice:1026:100::/h::" + hash + "\ncarol:1027:100::/h:disabled:" + hash +
                                               "\nroot_admin:1028:100::/h:admin:" + hash + "\n");
    zant_host::RegisterBuiltinAPIs();
    ZANT::APIRunner::Register("T", 1, "whoami", WhoAmI, [](ZANT::APIRequest*) { return 1; });
    setenv("USERNAME", "mallory", 1);  // inherited from the server's own environment
  }
  void TearDown() override {
    ZANT::APIRunner::Clear();
    unsetenv("USERNAME");
  }
  // {session id, "; Secure" or "", token} of a successful sign-in; otherwise a
  // failure of the test and three empty strings. Tokens are letters without
  // "e" or "E", so that no token ever reads as a JSON value.
  static std::vector<std::string> SignInWith(const std::string& body, const CgiVars& vars = {}) {
    const std::string answer = HandleForm(kLogin, body, vars);
    static const std::regex kShape(kHead +
        "Set-Cookie: id=([0-9a-f]{64}); Path=/; HttpOnly; SameSite=Lax(; Secure)?\r\n\r\n"
        "\\{\"data\":\\{\"ZantToken\":\"([a-df-zA-DF-Z]{26})\",\"account\":\"[a-z_]+\",\"is_admin\":(true|false)\\},"
        "\"success\":true\\}");
    std::smatch m;
    if (std::regex_match(answer, m, kShape)) return {m[1], m[2], m[3]};
    ADD_FAILURE() << answer;
    return {"", "", ""};
  }
  plyth_test::ApplianceRoot root_;
};

TEST_F(SignIn, LoginWhoAmILogout) {
  // Without a session the web server's user counts (-7) and is exposed as USERNAME.
  EXPECT_EQ(HandleForm(kWho, "", {{"REMOTE_USER", "bob"}}), Who("-7|-1||enu|bob|"));
  EXPECT_EQ(HandleForm(kWho, "", {{"REMOTE_USER", ""}}), Who("-1|-1||enu|null|"));
  const auto login = SignInWith("account=alice&passwd=1.50&lang=de");
  const std::string id = login[0], token = login[2];
  EXPECT_EQ(login[1], "");
  const CgiVars cookie = {{"HTTP_COOKIE", "other=1; id=" + id}, {"HTTP_ACCEPT_LANGUAGE", "fr"}};
  EXPECT_EQ(HandleForm(kWho, "", cookie), Who("1|1026|alice|ger|null|" + token));
  // A session wins over the web server's user, whose name is still exposed.
  const CgiVars both = {cookie[0], cookie[1], {"REMOTE_USER", "bob"}};
  EXPECT_EQ(HandleForm(kWho + "&lang=ja", "", both), Who("1|1026|alice|jpn|bob|" + token));
  EXPECT_EQ(HandleForm(kLogout, "", cookie), Error(105));
  EXPECT_EQ(HandleForm(kLogout + "&ZantToken=" + token.substr(0, 25), "", cookie), Error(105));
  EXPECT_EQ(HandleForm(kLogout + "&ZantToken=" + token, "", cookie), kCleared);
  EXPECT_EQ(HandleForm(kWho, "", cookie), Who("-1|-1||fre|null|"));
  EXPECT_EQ(HandleForm(kLogout), kCleared) << "signing out without a session";
}

TEST_F(SignIn, AdminOverHttpsGetsASecureCookieAndADisabledAccountLosesItsSession) {
  const auto login = SignInWith("account=root_admin&passwd=1.50", {{"HTTPS", "on"}});
  EXPECT_EQ(login[1], "; Secure");
  const CgiVars cookie = {{"HTTP_COOKIE", "id=" + login[0]}, {"HTTP_X_ZANTTOKEN", login[2]}};
  EXPECT_EQ(HandleForm(kWho, "", cookie), Who("2|1028|root_admin|enu|null|" + login[2]));
  EXPECT_EQ(HandleForm(kLogout + "&ZantToken=" + login[2] + "x", "", cookie), Error(105)) << "parameter first";
  EXPECT_EQ(HandleForm(kLogout, "", cookie), kCleared);

  const CgiVars alice = {{"HTTP_COOKIE", "id=" + SignInWith("account=alice&passwd=1.50")[0]}};
  ASSERT_EQ(ZANT::UserDB::SetFlags("alice", false, true), ZANT::UserDB::Status::kOk);
  EXPECT_EQ(HandleForm(kWho, "", alice), Who("-1|-1||enu|null|"));
  ASSERT_EQ(ZANT::UserDB::SetFlags("alice", false, false), ZANT::UserDB::Status::kOk);
  EXPECT_EQ(HandleForm(kWho, "", alice), Who("-1|-1||enu|null|"));
}

// A password that reads as JSON ("1.50" would become 1.5) is taken as typed.
TEST_F(SignIn, RefusalsAnswerOneCode) {
  SignInWith("account=alice&passwd=%221.50%22");
  for (const char* body : {"account=alice&passwd=1.5", "account=zoe&passwd=1.50", "account=carol&passwd=1.50"})
    EXPECT_EQ(HandleForm(kLogin, body), Error(400)) << body;
  EXPECT_EQ(HandleForm(kLogin, "passwd=pw"), Error(101));
}

TEST_F(SignIn, LoginAnswers121ToTheAddressThatGuessedAndNotToAnother) {
  root_.MakeDir("/var/log");
  const CgiVars guesser = {{"REMOTE_ADDR", "203.0.113.9"}};
  for (const char* body : {"account=alice&passwd=wrong", "account=zoe&passwd=x"}) {  // unknown accounts count alike
    for (int i = 0; i < 5; ++i) ASSERT_EQ(HandleForm(kLogin, body, guesser), Error(400)) << body << i;
    EXPECT_EQ(HandleForm(kLogin, body, guesser), Error(121)) << body;
  }
  EXPECT_EQ(HandleForm(kLogin, "account=alice&passwd=1.50", guesser), Error(121)) << "no password check";
  SignInWith("account=alice&passwd=1.50", {{"REMOTE_ADDR", "198.51.100.7"}});
  const std::string log = root_.ReadFile(zant_host::kHostLogFile);
  EXPECT_NE(log.find("]: sign-in of alice from 203.0.113.9 refused: too many attempts\n"), std::string::npos) << log;
  EXPECT_NE(log.find("]: sign-in of alice from 198.51.100.7\n"), std::string::npos) << log;
}

}  // namespace
