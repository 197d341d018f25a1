// Sharing links: the unlock ("auth"), the tokens it signs, expiry at the
// boundary second, and the throttle on wrong passwords.
#include <sys/stat.h>

#include "tokens.h"

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

// The key an unlock makes is private; made under root ids (the landing
// page's unlock) it belongs to the store directory's owner, the service user
// that checks tokens later.
TEST_F(Sharing, UnlockingSignsATokenWritingNothingAndTokensEndWhenWhatTheyWereSignedOverChanges) {
  const bool root = geteuid() == 0;
  if (root) { ASSERT_EQ(chown(root_.Host("/var/packages/BrindlexPlyth/target/var").c_str(), 33, 33), 0); }
  const std::string link = Share(item_, "", gNow + 7200);
  std::string error;
  sqlite3* shared = plyth_services::Store::Shared(&error)->Db();
  const int changesBefore = sqlite3_total_changes(shared);
  const Json::Value data = Auth(link, "")["data"];
  EXPECT_EQ(data.getMemberNames(), std::vector<std::string>{"sharing_token"});
  EXPECT_EQ(TokenFor(link), data["sharing_token"].asString()) << "the same second, the same token";
  EXPECT_EQ(sqlite3_total_changes(shared), changesBefore);
  struct stat key;
  ASSERT_EQ(stat(root_.Host(plyth_services::kTokenKeyPath).c_str(), &key), 0);
  EXPECT_EQ(key.st_mode & 07777, 0600u);
  if (root) { EXPECT_EQ(std::make_pair(key.st_uid, key.st_gid), std::make_pair(uid_t{33}, gid_t{33})); }

  // Tokens a caller could make up, or keep past a change of the link: refused
  // even where the link would admit the caller without one.
  ASSERT_EQ(plyth_services::SetLinkAccess(Db(), item_, Visibility::kAnyone, Role::kViewer), 0);
  const std::string token = data["sharing_token"].asString();
  const std::string head = token.substr(0, token.rfind('.') + 1), mac = token.substr(head.size());
  std::string flipped = mac;
  flipped[0] = flipped[0] == '0' ? '1' : '0';
  const std::string later = link + "." + std::to_string(gNow + 10 * plyth_services::kTokenLifetime) + "." + mac;
  for (const std::string& forged : std::vector<std::string>{head + flipped, later, head + mac.substr(1), link + ".." + mac,
                                    std::string("x"), token + "0", Share(item_) + token.substr(link.size())}) {
    EXPECT_EQ(Open(forged), 1040) << forged;
  }
  ASSERT_EQ(plyth_services::SetSharingLinkPassword(Db(), link, "n3w"), 0);
  EXPECT_EQ(Open(token), 1040) << "a password change ends the tokens";
  const std::string fresh = TokenFor(link, "n3w");
  EXPECT_EQ(Open(fresh), 0);
  ASSERT_EQ(plyth_services::SetSharingLinkPassword(Db(), link, ""), 0);
  EXPECT_EQ(Open(fresh), 1040) << "so does removing the password";
  EXPECT_EQ(plyth_services::SetSharingLinkPassword(Db(), "NoSuchLink000000", "x"), 1036);

  const std::string kept = TokenFor(link);
  root_.Remove(plyth_services::kTokenKeyPath);
  EXPECT_EQ(Open(kept), 1040) << "a new key ends every token";
}

// Form fields that parse as JSON reach the handler as numbers or booleans.
TEST_F(Sharing, AuthAnswersEachPasswordAndRefusesRevokedAndMissingLinks) {
  struct Row { const char* password; Json::Value given; int code; } rows[] = {  // the link's password; "" for none
      {.password = "", .given = "anything", .code = 0},
      {.password = "s3cret", .given = "S3cret", .code = 1037},
      {.password = "1234", .given = 1234, .code = 0},
      {.password = "true", .given = true, .code = 0},
      {.password = "s3cret", .given = Json::arrayValue, .code = 101}};
  for (const Row& row : rows) {
    const Json::Value result = Auth(Share(item_, row.password), row.given);
    EXPECT_EQ(ErrorCode(result), row.code) << row.password << " given " << ZANT::JsonToString(row.given);
    EXPECT_EQ(result["data"]["sharing_token"].isString(), row.code == 0);
  }
  const std::string link = Share(item_);
  const std::string token = TokenFor(link);
  ASSERT_EQ(plyth_services::RevokeSharingLink(Db(), link), 0);
  EXPECT_EQ(ErrorCode(Auth(link, "")), 1036);
  EXPECT_EQ(Open(token), 1040) << "its tokens end with it";
  EXPECT_EQ(ErrorCode(Call("ZANT.BrindlexPlyth.AdvanceSharing.Public", "auth", Params({{"password", ""}}), "anonymous")),
            101);
}

// Expiry at second E: the link works up to E - 1; at E it has expired, which
// is told before the password is looked at. Its tokens end then too, or at
// their own lifetime's end, and open no other link.
TEST_F(Sharing, LinksAndTokensEndAtTheirExpirySecondAndTokensOpenOnlyTheirLink) {
  const int64_t expiry = gNow + 100;
  const std::string link = Share(item_, "s3cret", expiry);
  struct Row { int64_t at; int noPassword, rightPassword; } rows[] = {
      {.at = expiry - 1, .noPassword = 1037, .rightPassword = 0},
      {.at = expiry, .noPassword = 1038, .rightPassword = 1038}};
  for (const Row& row : rows) {
    gNow = row.at;
    EXPECT_EQ(ErrorCode(Auth(link, "")), row.noPassword) << row.at - expiry;
    EXPECT_EQ(ErrorCode(Auth(link, "s3cret")), row.rightPassword) << row.at - expiry;
  }

  const int64_t start = gNow;
  const std::string token = TokenFor(Share(item_, "", start + 3 * plyth_services::kTokenLifetime));
  const Item other = AddItem("alice", "/docs/other.txt", "other");
  EXPECT_EQ(Open(token), 0);
  EXPECT_EQ(ErrorCode(FileGet("link:" + other.permanent_link, "anonymous", token)), 1040) << "another item's link";
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

// Five wrong passwords from one address within 600 seconds close the link
// to further attempts from that address until the oldest of them is 600
// seconds old. A right password does not clear the count; asking whether a
// password is needed is never throttled; other addresses and other links
// keep their own counts.
TEST_F(Sharing, ThrottleAfterTheFifthWrongPasswordFromOneAddress) {
  const std::string link = Share(item_, "s3cret"), other = Share(item_, "s3cret");
  const char kGuesser[] = "203.0.113.9", kRecipient[] = "198.51.100.7";
  const int64_t first = gNow;
  for (int i = 0; i < 4; ++i) {
    gNow = first + i * 10;
    ASSERT_EQ(ErrorCode(Auth(link, "wrong", kGuesser)), 1037) << "attempt " << i;
  }
  EXPECT_EQ(ErrorCode(Auth(link, "s3cret", kGuesser)), 0) << "four do not throttle";
  gNow = first + 40;
  EXPECT_EQ(ErrorCode(Auth(link, "wrong", kGuesser)), 1037);
  gNow = first + 50;
  EXPECT_EQ(ErrorCode(Auth(link, "s3cret", kGuesser)), 1039);
  EXPECT_EQ(ErrorCode(Auth(link, "wrong", kGuesser)), 1039) << "not looked at, not recorded";
  EXPECT_EQ(ErrorCode(Auth(link, "", kGuesser)), 1037);
  EXPECT_EQ(ErrorCode(Auth(link, "s3cret", kRecipient)), 0) << "per address";
  EXPECT_EQ(ErrorCode(Auth(other, "s3cret", kGuesser)), 0) << "per link";
  gNow = first + 599;
  EXPECT_EQ(ErrorCode(Auth(link, "s3cret", kGuesser)), 1039);
  gNow = first + 600;
  EXPECT_EQ(ErrorCode(Auth(link, "s3cret", kGuesser)), 0);

  for (int i = 0; i < 5; ++i) ASSERT_EQ(ErrorCode(Auth(other, "wrong", kGuesser)), 1037);
  EXPECT_EQ(ErrorCode(Auth(other, "s3cret", kGuesser)), 1039);
  ASSERT_EQ(plyth_services::SetSharingLinkPassword(Db(), other, "n3w"), 0);
  EXPECT_EQ(ErrorCode(Auth(other, "n3w", kGuesser)), 0) << "a new password starts a new count";
}

}  // namespace
}  // namespace services_test
