// Requests for access, through the web API and plythctl.
#include "access_requests.h"
#include "services_fixture.h"

namespace services_test {
namespace {

Json::Value RequestAccess(const std::string& path, const std::string& user, const std::string& message = "") {
  const Json::Value given = message.empty() ? Json::Value() : Json::Value(message);
  return Call("ZANT.BrindlexPlyth.AccessRequest", "create", Params({{"path", path}, {"message", given}}), user);
}

class AccessRequests : public ServicesTest {
 protected:
  void SetUp() override {
    ServicesTest::SetUp();
    plan_ = AddItem("alice", "/docs/plan.txt", "plan");
    AddUser("carol");
  }
  Item plan_;
};

TEST_F(AccessRequests, CreateRefusesWhatCannotBecomeAMemberAndKeepsTheFirstOfRepeats) {
  const std::string longMessage(plyth_services::kMaxRequestMessage + 1, 'x');
  // `path` "": the plan's own link.
  struct Row { const char* why; std::string user = "carol"; std::string path = "", message = ""; int code; };
  const Row rows[] = {
      {.why = "anonymous", .user = "anonymous", .code = 1002},
      {.why = "file id instead of a link", .path = "id:" + plan_.file_id, .code = 101},
      {.why = "unknown link", .path = "link:NoSuchLink0000", .code = 408},
      {.why = "message too long", .message = longMessage, .code = 101},
      {.why = "accepted", .message = "for the review", .code = 0}};
  for (const Row& row : rows) {
    const std::string path = row.path.empty() ? "link:" + plan_.permanent_link : row.path;
    EXPECT_EQ(ErrorCode(RequestAccess(path, row.user, row.message)), row.code) << row.why;
  }
  gNow += 60;
  ASSERT_EQ(ErrorCode(RequestAccess("link:" + plan_.permanent_link, "carol", "again")), 0);
  EXPECT_EQ(Ctl({"requests", "list"}).out, "alice:/docs/plan.txt\tcarol\t2023-11-14 22:13:20\tfor the review\n")
      << "a repeated request keeps the first";
  ASSERT_EQ(plyth_services::SetRemoved(Db(), plan_, true), 0);
  EXPECT_EQ(ErrorCode(RequestAccess("link:" + plan_.permanent_link, "carol")), 408) << "in the recycle bin";
}

TEST_F(AccessRequests, GrantMakesAMemberWithTheLinkRoleAndDenyForgets) {
  AddUser("dave");
  ASSERT_EQ(plyth_services::SetLinkAccess(Db(), plan_, Visibility::kMembers, Role::kCommenter), 0);
  for (const char* user : {"carol", "dave"})
    ASSERT_EQ(ErrorCode(RequestAccess("link:" + plan_.permanent_link, user)), 0);

  for (const auto& [verb, user] : {std::pair{"grant", "carol"}, std::pair{"deny", "dave"}}) {
    const CtlRun run = Ctl({"requests", verb, "alice:/docs/plan.txt", user});
    EXPECT_EQ(run.code, 0) << verb;
    EXPECT_EQ(run.out + run.err, "") << verb;
  }
  EXPECT_EQ(Ctl({"requests", "list"}).out, "");

  EXPECT_TRUE(FileGet("link:" + plan_.permanent_link, "carol")["data"]["capabilities"]["can_comment"].asBool());
  EXPECT_EQ(ErrorCode(FileGet("link:" + plan_.permanent_link, "dave")), 1002);
  EXPECT_EQ(Ctl({"requests", "deny", "alice:/docs/plan.txt", "dave"}).code, 2) << "no request left to deny";
}

}  // namespace
}  // namespace services_test
