// The link-service client against fake web APIs in the in-process runner:
// what it sends, as whom, what it makes of each result shape, and the
// system-log lines of a failure.
#include <stdlib.h>

#include "../module_testing.h"
#include "plyth_utils.h"

namespace {

const char kSource[] = "server/ui-web/src/plyth/common/plyth_utils";

class LinkClient : public ::testing::Test {
 protected:
  FakeIdentity identity_{0, 0};  // root already: no switch lines in the log
  SyslogCapture log_;
  FakeAPI files_{"ZANT.BrindlexPlyth.Files", 1, "get"};
  FakeAPI auth_{"ZANT.BrindlexPlyth.AdvanceSharing.Public", 1, "auth"};
};

// PlythFileGet("alice", "AbC", token) or PlythSharingAuth("L1", password): the token or the password;
// the parameters, as logged on failure; the record (as JSON) or the token ("old" before); the result as
// logged (null: nothing logged).
struct Case {
  const char* description;
  bool auth;
  const char* input;
  Json::Value result;
  const char* sent;
  int code;
  const char *after, *loggedResult;
};

class Call : public LinkClient, public ::testing::WithParamInterface<Case> {};

TEST_P(Call, SendsAndJudgesTheResult) {
  const Case& c = GetParam();
  FakeAPI& api = c.auth ? auth_ : files_;
  api.AlwaysReturn(c.result);
  Json::Value file("old");
  std::string token = "old";
  EXPECT_EQ(c.auth ? PlythSharingAuth("L1", c.input, token) : PlythFileGet("alice", "AbC", c.input, file), c.code);
  EXPECT_EQ(c.auth ? token : Text(file), c.after);
  ASSERT_EQ(api.Calls().size(), 1u);
  EXPECT_EQ(api.Calls()[0].params, Parse(c.sent));
  EXPECT_EQ(api.Calls()[0].user, c.auth ? "anonymous" : "alice");
  // A failure logs the link (the record fetch only), the parameters and the result.
  Lines lines;
  if (c.loggedResult != nullptr && !c.auth) lines.push_back(Logged(3, kSource, 210, "permanent_link: AbC"));
  if (c.loggedResult != nullptr) lines.push_back(Logged(3, kSource, c.auth ? 234 : 211, c.sent));
  if (c.loggedResult != nullptr) lines.push_back(Logged(3, kSource, c.auth ? 235 : 212, c.loggedResult));
  EXPECT_EQ(log_.Lines(), lines);
}

const char kTok[] = R"({"path":"link:AbC","sharing_token":"tok"})";
const char kPw[] = R"({"password":"pw","sharing_link":"L1"})";
const bool kFiles = false, kAuth = true;

const Json::Value kT1 = FakeAPI::Success(Parse(R"({"sharing_token":"T1"})"));
const char kFailed[] = R"({"error":{"code":1037},"success":false})", kNoError[] = R"({"success":false})";

INSTANTIATE_TEST_SUITE_P(Rows, Call, ::testing::Values(
    Case{"data", kFiles, "tok", FakeAPI::Success(Parse(R"({"a":1})")), kTok, 0, R"({"a":1})", 0},
    Case{"no token, no data", kFiles, "", FakeAPI::SuccessWithoutData(), R"({"path":"link:AbC"})", 0, R"("old")", 0},
    // A failure without an error code answers 0.
    Case{"failure without error", kFiles, "tok", FakeAPI::FailureWithoutError(), kTok, 0, R"("old")", kNoError},
    Case{"token", kAuth, "", kT1, R"({"password":"","sharing_link":"L1"})", 0, "T1", 0},
    Case{"no token empties it", kAuth, "pw", FakeAPI::Success(Parse("{}")), kPw, 0, "", 0},
    Case{"no data keeps it", kAuth, "pw", FakeAPI::SuccessWithoutData(), kPw, 0, "old", 0},
    Case{"auth failure", kAuth, "pw", FakeAPI::Failure(1037), kPw, 1037, "old", kFailed},
    Case{"auth failure without error", kAuth, "pw", FakeAPI::FailureWithoutError(), kPw, 0, "old", kNoError}));

TEST_F(LinkClient, FileGetHoldsRootDuringTheCallOnly) {
  FakeIdentity user(1000, 100);
  std::vector<uid_t> inside;
  files_.Respond([&](const Json::Value&, const std::string&) {
    inside = {user.Euid(), user.Egid()};
    return FakeAPI::SuccessWithoutData();
  });
  Json::Value file;
  PlythFileGet("alice", "AbC", "", file);
  EXPECT_EQ(inside, (std::vector<uid_t>{0, 0}));
  EXPECT_EQ(log_.Lines(), Switched(kSource, 206));
}

// What it sends and hands back shows in the origin tests; the switch only here.
TEST_F(LinkClient, WebAPIExecSetsContentTypeAndHoldsRootOnlyForTheCall) {
  setenv("CONTENT_TYPE", "text/plain", 1);
  FakeIdentity user(1000, 0);
  FakeAPI ddns("ZANT.Core.DDNS.Record", 1, "list");
  ddns.AlwaysReturn(FakeAPI::Failure(105));
  Json::Value result;
  EXPECT_TRUE(PlythWebAPIExec(result, "ZANT.Core.DDNS.Record", 1, "list", Json::Value(), "admin"));
  EXPECT_STREQ(getenv("CONTENT_TYPE"), "application/x-www-form-urlencoded; charset=UTF-8");
  // Only the switch is logged; callers judge the result.
  EXPECT_EQ(log_.Lines(), (Lines{Logged(38, kSource, 64, "WARNING: setresuid(-1, 0, -1)"),
                                 Logged(38, kSource, 64, "WARNING: setresuid(-1, 0, -1)")}));
}

}  // namespace
