// Sharing links: the unlock ("auth"), the tokens it hands out, expiry at
// the boundary second, and the throttle on wrong passwords.
#include "services_fixture.h"

namespace services_test {
namespace {

using plyth_services::Item;

class Sharing : public ServicesTest {
 protected:
  void SetUp() override {
    ServicesTest::SetUp();
    item_ = AddItem("alice", "/docs/plan.txt", "plan");
    other_ = AddItem("alice", "/docs/other.txt", "other");
  }
  Item item_;
  Item other_;
};

TEST_F(Sharing, LinkWithoutPasswordUnlocksWithAnEmptyPassword) {
  std::string link = Share(item_);
  Json::Value result = Auth(link, "");
  ASSERT_EQ(ErrorCode(result), 0);
  const std::string token = result["data"]["sharing_token"].asString();
  EXPECT_EQ(token.size(), 43u);
  EXPECT_EQ(token.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
            std::string::npos);
  EXPECT_EQ(result["data"].getMemberNames(), std::vector<std::string>{"sharing_token"});
  // Two unlocks give two tokens, each working.
  std::string second = TokenFor(link);
  EXPECT_NE(second, token);
  EXPECT_EQ(ErrorCode(FileGet("link:" + item_.permanent_link, "anonymous", token)), 0);
  EXPECT_EQ(ErrorCode(FileGet("link:" + item_.permanent_link, "anonymous", second)), 0);
}

TEST_F(Sharing, OnlyTheTokensHashIsStored) {
  std::string token = TokenFor(Share(item_));
  plyth_services::Statement rows(Db().Db(), "SELECT token_hash FROM tokens");
  ASSERT_TRUE(rows.Row());
  EXPECT_EQ(rows.Text(0), plyth_services::Sha256Hex(token));
}

struct AuthRow {
  const char* description;
  const char* password;  // of the link; "" for none
  const char* given;
  int code;
};
void PrintTo(const AuthRow& row, std::ostream* os) { *os << "\"" << row.description << "\""; }

class AuthAnswers : public Sharing, public ::testing::WithParamInterface<AuthRow> {};

TEST_P(AuthAnswers, ForEachPassword) {
  std::string link = Share(item_, GetParam().password);
  Json::Value result = Auth(link, GetParam().given);
  EXPECT_EQ(ErrorCode(result), GetParam().code) << result.toStyledString();
  EXPECT_EQ(result["data"]["sharing_token"].isString(), GetParam().code == 0);
}

INSTANTIATE_TEST_SUITE_P(
    Passwords, AuthAnswers,
    ::testing::Values(AuthRow{"no_password_needed", "", "", 0},
                      AuthRow{"a_password_given_to_a_link_without_one", "", "anything", 0},
                      AuthRow{"password_missing", "s3cret", "", 1037},
                      AuthRow{"password_wrong", "s3cret", "S3cret", 1037},
                      AuthRow{"password_right", "s3cret", "s3cret", 0}),
    [](const ::testing::TestParamInfo<AuthRow>& info) { return std::string(info.param.description); });

// Form fields that parse as JSON reach the handler as numbers or booleans.
TEST_F(Sharing, PasswordsThatLookLikeJsonStillMatch) {
  std::string numeric = Share(item_, "1234");
  std::string boolean = Share(item_, "true");
  Json::Value params(Json::objectValue);
  params["sharing_link"] = numeric;
  params["password"] = 1234;
  EXPECT_EQ(ErrorCode(Call("ZANT.BrindlexPlyth.AdvanceSharing.Public", "auth", params, "anonymous")), 0);
  params["sharing_link"] = boolean;
  params["password"] = true;
  EXPECT_EQ(ErrorCode(Call("ZANT.BrindlexPlyth.AdvanceSharing.Public", "auth", params, "anonymous")), 0);
  params["password"] = Json::Value(Json::arrayValue);
  EXPECT_EQ(ErrorCode(Call("ZANT.BrindlexPlyth.AdvanceSharing.Public", "auth", params, "anonymous")), 101);
}

TEST_F(Sharing, UnknownAndRevokedLinksAnswer1036) {
  EXPECT_EQ(ErrorCode(Auth("NoSuchLink000000", "")), 1036);
  std::string link = Share(item_);
  std::string token = TokenFor(link);
  ASSERT_EQ(plyth_services::RevokeSharingLink(Db(), link), 0);
  EXPECT_EQ(ErrorCode(Auth(link, "")), 1036);
  // Its tokens went with it.
  EXPECT_EQ(ErrorCode(FileGet("link:" + item_.permanent_link, "anonymous", token)), 1040);
}

TEST_F(Sharing, MissingLinkParameterIsABadParameter) {
  Json::Value params(Json::objectValue);
  params["password"] = "";
  Json::Value result = Call("ZANT.BrindlexPlyth.AdvanceSharing.Public", "auth", params, "anonymous");
  EXPECT_EQ(ErrorCode(result), 101);
}

// Expiry at second E: the link works up to E - 1; at E it has expired.
struct ExpiryRow {
  const char* description;
  int64_t offset;  // now - expiry
  int code;
};
void PrintTo(const ExpiryRow& row, std::ostream* os) { *os << "\"" << row.description << "\""; }

class ExpiryBoundary : public Sharing, public ::testing::WithParamInterface<ExpiryRow> {};

TEST_P(ExpiryBoundary, AtTheExpirySecondTheLinkHasExpired) {
  const int64_t expiry = FakeNow() + 100;
  std::string link = Share(item_, "s3cret", expiry);
  FakeNow() = expiry + GetParam().offset;
  // Expiry is told before the password is looked at.
  EXPECT_EQ(ErrorCode(Auth(link, "")), GetParam().code == 0 ? 1037 : GetParam().code);
  EXPECT_EQ(ErrorCode(Auth(link, "s3cret")), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(Seconds, ExpiryBoundary,
                         ::testing::Values(ExpiryRow{"one_second_before", -1, 0},
                                           ExpiryRow{"the_expiry_second", 0, 1038},
                                           ExpiryRow{"after", 1, 1038}),
                         [](const ::testing::TestParamInfo<ExpiryRow>& info) {
                           return std::string(info.param.description);
                         });

// A token in Files "get": each way a token can be wrong answers 1040.
TEST_F(Sharing, TokensOnlyOpenTheirOwnLinkWhileTheyLast) {
  const int64_t start = FakeNow();
  std::string link = Share(item_, "", start + 3 * plyth_services::kTokenLifetime);
  std::string token = TokenFor(link);
  const std::string path = "link:" + item_.permanent_link;

  EXPECT_EQ(ErrorCode(FileGet(path, "anonymous", token)), 0) << "valid";
  EXPECT_EQ(ErrorCode(FileGet("link:" + other_.permanent_link, "anonymous", token)), 1040)
      << "token of another item's link";
  std::string forged = token;
  forged[0] = forged[0] == 'A' ? 'B' : 'A';
  EXPECT_EQ(ErrorCode(FileGet(path, "anonymous", forged)), 1040) << "forged";
  EXPECT_EQ(ErrorCode(FileGet(path, "anonymous", "x")), 1040) << "not a token at all";

  FakeNow() = start + plyth_services::kTokenLifetime - 1;
  EXPECT_EQ(ErrorCode(FileGet(path, "anonymous", token)), 0) << "last second of the token";
  FakeNow() = start + plyth_services::kTokenLifetime;
  EXPECT_EQ(ErrorCode(FileGet(path, "anonymous", token)), 1040) << "token expired";
}

TEST_F(Sharing, TokensEndWithTheirLink) {
  std::string link = Share(item_, "", FakeNow() + 60);
  std::string token = TokenFor(link);
  FakeNow() += 59;
  EXPECT_EQ(ErrorCode(FileGet("link:" + item_.permanent_link, "anonymous", token)), 0);
  FakeNow() += 1;
  EXPECT_EQ(ErrorCode(FileGet("link:" + item_.permanent_link, "anonymous", token)), 1040);
}

TEST_F(Sharing, ABadTokenIsRefusedEvenWhereTheLinkWouldAdmit) {
  ASSERT_EQ(plyth_services::SetLinkAccess(Db(), item_, plyth_services::Visibility::kAnyone,
                                          plyth_services::Role::kViewer), 0);
  EXPECT_EQ(ErrorCode(FileGet("link:" + item_.permanent_link, "anonymous")), 0);
  EXPECT_EQ(ErrorCode(FileGet("link:" + item_.permanent_link, "anonymous", "forged")), 1040);
}

TEST_F(Sharing, BrowsersMayPresentTheTokenCookieOfTheirSharingLink) {
  std::string link = Share(item_);
  std::string token = TokenFor(link);
  ZANT::APIRequest request;
  request.SetAPI("ZANT.BrindlexPlyth.Files", 1, "get");
  request.SetParam("path", "link:" + item_.permanent_link);
  request.SetParam("sharing_link", link);
  request.SetCookie("plyth-sharing-" + link, token);
  ZANT::APIResponse response;
  ZANT::APIRunner::Dispatch(&request, &response);
  EXPECT_TRUE(response.IsSuccess());
  EXPECT_EQ(response.GetData()["name"].asString(), "plan.txt");
}

// Five wrong passwords within 600 seconds close the link to further
// attempts until the oldest of them is 600 seconds old.
TEST_F(Sharing, ThrottleAfterFiveWrongPasswords) {
  std::string link = Share(item_, "s3cret");
  const int64_t first = FakeNow();
  for (int i = 0; i < 5; ++i) {
    FakeNow() = first + i * 10;
    ASSERT_EQ(ErrorCode(Auth(link, "wrong")), 1037) << "attempt " << i;
  }
  FakeNow() = first + 50;
  EXPECT_EQ(ErrorCode(Auth(link, "s3cret")), 1039) << "right password while throttled";
  EXPECT_EQ(ErrorCode(Auth(link, "")), 1037) << "asking whether a password is needed is never throttled";
  FakeNow() = first + 599;
  EXPECT_EQ(ErrorCode(Auth(link, "s3cret")), 1039) << "oldest failure still in the window";
  FakeNow() = first + 600;
  EXPECT_EQ(ErrorCode(Auth(link, "s3cret")), 0) << "oldest failure left the window";
}

TEST_F(Sharing, ThrottleIsPerLink) {
  std::string closed = Share(item_, "s3cret");
  std::string open = Share(item_, "s3cret");
  for (int i = 0; i < 5; ++i) ASSERT_EQ(ErrorCode(Auth(closed, "wrong")), 1037);
  EXPECT_EQ(ErrorCode(Auth(closed, "s3cret")), 1039);
  EXPECT_EQ(ErrorCode(Auth(open, "s3cret")), 0);
}

TEST_F(Sharing, FourWrongPasswordsDoNotThrottle) {
  std::string link = Share(item_, "s3cret");
  for (int i = 0; i < 4; ++i) ASSERT_EQ(ErrorCode(Auth(link, "wrong")), 1037);
  EXPECT_EQ(ErrorCode(Auth(link, "s3cret")), 0);
}

TEST_F(Sharing, RemovedItemsAreStillAnsweredAsRemoved) {
  std::string token = TokenFor(Share(item_));
  Item folder;
  ASSERT_EQ(plyth_services::FindItemByPath(Db(), "alice", "/docs", &folder), 0);
  ASSERT_EQ(plyth_services::SetRemoved(Db(), folder, true), 0);
  Json::Value result = FileGet("link:" + item_.permanent_link, "anonymous", token);
  ASSERT_EQ(ErrorCode(result), 0);
  EXPECT_TRUE(result["data"]["removed"].asBool());
  ASSERT_EQ(plyth_services::SetRemoved(Db(), folder, false), 0);
  result = FileGet("link:" + item_.permanent_link, "anonymous", token);
  EXPECT_FALSE(result["data"]["removed"].asBool());
}

}  // namespace
}  // namespace services_test
