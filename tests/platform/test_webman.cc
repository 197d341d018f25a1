// Sign-in state and token of the request being dispatched.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "temp_root.h"
#include "zant/webapi.h"
#include "zant/webman.h"

namespace {

struct AuthCase {
  const char* description;
  bool current;        // a request is being dispatched
  int uid;
  int auth;
  std::string user;
  const char* envUser;  // "USERNAME", null: unset
  int mask;
  int expected;
};

class CheckAuthorizedTest : public ::testing::TestWithParam<AuthCase> {
 protected:
  void TearDown() override { unsetenv("USERNAME"); }
};

TEST_P(CheckAuthorizedTest, Answers) {
  platform_test::TempRoot root;
  root.WriteFile("/usr/zant/etc/users",
                 "alice:1026:100:Alice:/home/alice::\n"
                 "bob:1027:100:Bob:/home/bob:disabled:\n");
  const AuthCase& c = GetParam();
  if (c.envUser != nullptr) {
    setenv("USERNAME", c.envUser, 1);
  } else {
    unsetenv("USERNAME");
  }
  ZANT::APIRequest request;
  request.SetLogin(c.user, c.uid, c.auth);
  ZANT::CurrentRequestScope scope(c.current ? &request : nullptr);
  WebMan webman(true);
  EXPECT_EQ(c.expected, webman.CheckAuthorized(c.mask, CGI_POSITION_WEBAPI, false));
}

INSTANTIATE_TEST_SUITE_P(
    Table, CheckAuthorizedTest,
    ::testing::Values(
        AuthCase{"no request", false, 1026, 1, "alice", "alice", 31, -1},
        AuthCase{"signed-in user", true, 1026, 1, "alice", nullptr, 31, 1},
        AuthCase{"signed-in administrator", true, 1024, 2, "admin", nullptr, 31, 2},
        AuthCase{"auth 1 with a name but no uid", true, -1, 1, "alice", nullptr, 31, 1},
        AuthCase{"auth 1 without a name or uid", true, -1, 1, "", nullptr, 31, -1},
        AuthCase{"uid alone counts", true, 1026, -1, "", nullptr, 31, 1},
        AuthCase{"admin-only privilege for a user", true, 1026, 1, "alice", nullptr, 0x100, -3},
        AuthCase{"admin-only privilege for an administrator", true, 1024, 2, "admin", nullptr,
                 0x100, 2},
        AuthCase{"web server names an enabled user", true, -1, -7, "", "alice", 31, -7},
        AuthCase{"web server names a disabled user", true, -1, -7, "", "bob", 31, -2},
        AuthCase{"web server names an unknown user", true, -1, -7, "", "ghost", 31, -2},
        AuthCase{"auth -7 without USERNAME", true, -1, -7, "", nullptr, 31, -1},
        AuthCase{"auth -7 with empty USERNAME", true, -1, -7, "", "", 31, -1},
        AuthCase{"USERNAME without auth -7", true, -1, -1, "", "alice", 31, -1}),
    [](const ::testing::TestParamInfo<AuthCase>& info) { return "row" + std::to_string(info.index); });

TEST(WebManTokenTest, AnswersTheCurrentRequestsToken) {
  WebMan webman(true);
  EXPECT_EQ("", webman.GetZantToken(false));
  ZANT::APIRequest request;
  request.SetSessionToken("tok123");
  ZANT::CurrentRequestScope scope(&request);
  EXPECT_EQ("tok123", webman.GetZantToken(false)) << "read at the call, not at construction";
}

}  // namespace
