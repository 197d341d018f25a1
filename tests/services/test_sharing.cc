// Sharing links: the unlock ("auth"), the tokens it hands out, expiry at
// the boundary second, and the throttle on wrong passwords.
#include <algorithm>

#include "services_fixture.h"

namespace services_test {
namespace {

class Sharing : public ServicesTest {
 protected:
  void SetUp() override {
    ServicesTest::SetUp();
    item_ = AddItem("alice", "/docs/plan.txt", "plan");
  }
  int Open(const std::string& token) { return ErrorCode(FileGet("link:" + item_.permanent_link, "anonymous", token)); }
  Item item_;
};

TEST_F(Sharing, EachUnlockIssuesATokenOfItsOwnStoredAsAHash) {
  const std::string link = Share(item_);
  const Json::Value result = Auth(link, "");
  ASSERT_EQ(ErrorCode(result), 0);
  EXPECT_EQ(result["data"].getMemberNames(), std::vector<std::string>{"sharing_token"});
  const std::string token = result["data"]["sharing_token"].asString(), second = TokenFor(link);
  EXPECT_EQ(token.size(), 43u);
  EXPECT_TRUE(std::all_of(token.begin(), token.end(), [](unsigned char c) { return isalnum(c) != 0; })) << token;
  EXPECT_NE(second, token);
  EXPECT_EQ(Open(token), 0);
  EXPECT_EQ(Open(second), 0);
  plyth_services::Statement rows(Db().Db(), "SELECT token_hash FROM tokens ORDER BY rowid");
  ASSERT_TRUE(rows.Row());
  EXPECT_EQ(rows.Text(0), plyth_services::Sha256Hex(token));
}

// Auth rows: the link's password ("" for none), the one given, the answer.
// Form fields that parse as JSON reach the handler as numbers or booleans.
struct AuthRow {
  const char* password;
  Json::Value given;
  int code;
};

class AuthAnswers : public Sharing, public ::testing::WithParamInterface<AuthRow> {};

TEST_P(AuthAnswers, ForEachPassword) {
  const Json::Value result = Auth(Share(item_, GetParam().password), GetParam().given);
  EXPECT_EQ(ErrorCode(result), GetParam().code) << result.toStyledString();
  EXPECT_EQ(result["data"]["sharing_token"].isString(), GetParam().code == 0);
}

INSTANTIATE_TEST_SUITE_P(Passwords, AuthAnswers,
                         ::testing::Values(AuthRow{"", "", 0}, AuthRow{"", "anything", 0}, AuthRow{"s3cret", "", 1037},
                                           AuthRow{"s3cret", "S3cret", 1037}, AuthRow{"s3cret", "s3cret", 0},
                                           AuthRow{"1234", 1234, 0}, AuthRow{"true", true, 0},
                                           AuthRow{"s3cret", Json::Value(Json::arrayValue), 101}));

TEST_F(Sharing, UnknownRevokedAndMissingLinks) {
  EXPECT_EQ(ErrorCode(Auth("NoSuchLink000000", "")), 1036);
  const std::string link = Share(item_);
  const std::string token = TokenFor(link);
  ASSERT_EQ(plyth_services::RevokeSharingLink(Db(), link), 0);
  EXPECT_EQ(ErrorCode(Auth(link, "")), 1036);
  EXPECT_EQ(Open(token), 1040) << "its tokens went with it";
  Json::Value params(Json::objectValue);
  params["password"] = "";
  EXPECT_EQ(ErrorCode(Call("ZANT.BrindlexPlyth.AdvanceSharing.Public", "auth", params, "anonymous")), 101);
}

// Expiry at second E: the link works up to E - 1; at E it has expired, which
// is told before the password is looked at.
class ExpiryBoundary : public Sharing, public ::testing::WithParamInterface<std::pair<int64_t, int>> {};

TEST_P(ExpiryBoundary, AtTheExpirySecondTheLinkHasExpired) {
  const int64_t expiry = gNow + 100;
  const std::string link = Share(item_, "s3cret", expiry);
  gNow = expiry + GetParam().first;
  EXPECT_EQ(ErrorCode(Auth(link, "")), GetParam().second == 0 ? 1037 : GetParam().second);
  EXPECT_EQ(ErrorCode(Auth(link, "s3cret")), GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(Seconds, ExpiryBoundary,
                         ::testing::Values(std::make_pair(-1, 0), std::make_pair(0, 1038), std::make_pair(1, 1038)));

TEST_F(Sharing, TokensOpenOnlyTheirOwnLinkWhileTheyLast) {
  const int64_t start = gNow;
  const std::string token = TokenFor(Share(item_, "", start + 3 * plyth_services::kTokenLifetime));
  const Item other = AddItem("alice", "/docs/other.txt", "other");
  std::string forged = token;
  forged[0] = forged[0] == 'A' ? 'B' : 'A';
  EXPECT_EQ(Open(token), 0);
  EXPECT_EQ(ErrorCode(FileGet("link:" + other.permanent_link, "anonymous", token)), 1040) << "another item's link";
  EXPECT_EQ(Open(forged), 1040);
  EXPECT_EQ(Open("x"), 1040);
  gNow = start + plyth_services::kTokenLifetime - 1;
  EXPECT_EQ(Open(token), 0) << "the token's last second";
  gNow = start + plyth_services::kTokenLifetime;
  EXPECT_EQ(Open(token), 1040) << "expired";

  const std::string shortLived = TokenFor(Share(item_, "", gNow + 60));
  gNow += 59;
  EXPECT_EQ(Open(shortLived), 0);
  gNow += 1;
  EXPECT_EQ(Open(shortLived), 1040) << "a token ends with its link";
}

TEST_F(Sharing, ABadTokenIsRefusedEvenWhereTheLinkWouldAdmit) {
  ASSERT_EQ(plyth_services::SetLinkAccess(Db(), item_, Visibility::kAnyone, Role::kViewer), 0);
  EXPECT_EQ(ErrorCode(FileGet("link:" + item_.permanent_link, "anonymous")), 0);
  EXPECT_EQ(Open("forged"), 1040);
}

// Five wrong passwords within 600 seconds close the link to further attempts
// until the oldest of them is 600 seconds old. A right password does not
// clear the count; asking whether a password is needed is never throttled.
TEST_F(Sharing, ThrottleAfterTheFifthWrongPassword) {
  const std::string link = Share(item_, "s3cret"), other = Share(item_, "s3cret");
  const int64_t first = gNow;
  for (int i = 0; i < 4; ++i) {
    gNow = first + i * 10;
    ASSERT_EQ(ErrorCode(Auth(link, "wrong")), 1037) << "attempt " << i;
  }
  EXPECT_EQ(ErrorCode(Auth(link, "s3cret")), 0) << "four do not throttle";
  gNow = first + 40;
  EXPECT_EQ(ErrorCode(Auth(link, "wrong")), 1037);
  gNow = first + 50;
  EXPECT_EQ(ErrorCode(Auth(link, "s3cret")), 1039);
  EXPECT_EQ(ErrorCode(Auth(link, "")), 1037);
  EXPECT_EQ(ErrorCode(Auth(other, "s3cret")), 0) << "per link";
  gNow = first + 599;
  EXPECT_EQ(ErrorCode(Auth(link, "s3cret")), 1039);
  gNow = first + 600;
  EXPECT_EQ(ErrorCode(Auth(link, "s3cret")), 0);
}

}  // namespace
}  // namespace services_test
