// The sign-in throttle: its window at the boundary second, and "login"
// answering 121 per account and address. (A burst from many connections at
// once goes through the whole stack in integration_links.py.)
#include <gtest/gtest.h>

#include "handle_form.h"
#include "harness.h"
#include "zant/userdb.h"
#include "zant_host/host.h"
#include "zant_host/sign_in_throttle.h"

namespace {

using zant_host::SignInThrottle;
using zant_host::ThrottleVerdict;

constexpr int64_t kStart = 1700000000;

TEST(SignInThrottle, FiveFailuresCloseTheAccountToThatAddressForTheWindow) {
  plyth_test::ApplianceRoot root;
  const SignInThrottle throttle;
  for (int i = 0; i < zant_host::kSignInFailureLimit; ++i) {
    EXPECT_EQ(throttle.Check("alice", "203.0.113.9", kStart + i), ThrottleVerdict::kAllowed) << i;
    EXPECT_EQ(throttle.Record("alice", "203.0.113.9", kStart + i), ThrottleVerdict::kAllowed) << i;
  }
  const ThrottleVerdict kAllowed = ThrottleVerdict::kAllowed, kThrottled = ThrottleVerdict::kThrottled;
  const struct Row { const char *account, *client; int64_t at; ThrottleVerdict verdict; } rows[] = {
      {"alice", "203.0.113.9", kStart + 5, kThrottled},
      {"alice", "198.51.100.7", kStart + 5, kAllowed},
      {"bob", "203.0.113.9", kStart + 5, kAllowed},
      {"Alice", "203.0.113.9", kStart + 5, kAllowed},
      {"alice", "203.0.113.9", kStart + 599, kThrottled},  // the first failure counts up to second kStart + 599
      {"alice", "203.0.113.9", kStart + 600, kAllowed},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(throttle.Check(row.account, row.client, row.at), row.verdict)
        << row.account << " from " << row.client << " at +" << row.at - kStart;
  }
  EXPECT_EQ(throttle.Record("alice", "203.0.113.9", kStart + 6), ThrottleVerdict::kThrottled) << "nothing recorded";
  EXPECT_EQ(throttle.Check("alice", "203.0.113.9", kStart + 600), ThrottleVerdict::kAllowed);

  root.MakeDir("/var/lib/zant/elsewhere.db");
  EXPECT_EQ(SignInThrottle(root.Host("/var/lib/zant/elsewhere.db")).Check("a", "b", kStart),
            ThrottleVerdict::kUnavailable);
}

class SignInThrottled : public ::testing::Test {
 protected:
  void SetUp() override {
    ZANT::UserDB::User user;
    user.name = "alice";
    ASSERT_EQ(ZANT::UserDB::AddUser(&user, "right"), ZANT::UserDB::Status::kOk);
    root_.MakeDir("/var/log");
    zant_host::RegisterBuiltinAPIs();
  }
  void TearDown() override { ZANT::APIRunner::Clear(); }
  static int Login(const std::string& body, const std::string& from) {
    const std::string answer =
        host_test::HandleForm("api=ZANT.Core.Auth&version=1&method=login", body, {{"REMOTE_ADDR", from}});
    const size_t code = answer.find("\"code\":");
    return code == std::string::npos ? 0 : std::stoi(answer.substr(code + 7));
  }
  plyth_test::ApplianceRoot root_;
};

TEST_F(SignInThrottled, LoginAnswers121ToTheAddressThatGuessedAndNotToAnother) {
  for (int i = 0; i < 5; ++i) ASSERT_EQ(Login("account=alice&passwd=wrong", "203.0.113.9"), 400) << i;
  EXPECT_EQ(Login("account=alice&passwd=right", "203.0.113.9"), 121) << "the password is not looked at";
  EXPECT_EQ(Login("account=alice&passwd=right", "198.51.100.7"), 0);
  for (int i = 0; i < 5; ++i) ASSERT_EQ(Login("account=zoe&passwd=x", "203.0.113.9"), 400) << i;
  EXPECT_EQ(Login("account=zoe&passwd=x", "203.0.113.9"), 121) << "unknown accounts count alike";
  const std::string log = root_.ReadFile(zant_host::kHostLogFile);
  EXPECT_NE(log.find("]: sign-in of alice from 203.0.113.9 refused: too many attempts\n"), std::string::npos) << log;
  EXPECT_NE(log.find("]: sign-in of alice from 198.51.100.7\n"), std::string::npos) << log;
}

}  // namespace
