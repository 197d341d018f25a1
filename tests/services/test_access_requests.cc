// Requests for access (the web API and plythctl) and downloads refused to a
// browser that navigated to them.
#include <sstream>

#include "access_requests.h"
#include "plythctl.h"
#include "services_api.h"
#include "services_fixture.h"

namespace services_test {
namespace {

Json::Value RequestAccess(const std::string& path, const std::string& user, const std::string& message = "") {
  Json::Value params(Json::objectValue);
  params["path"] = path;
  if (!message.empty()) params["message"] = message;
  return Call("ZANT.BrindlexPlyth.AccessRequest", "create", params, user);
}

std::string Ctl(const std::vector<std::string>& args, int* code = nullptr) {
  std::istringstream in;
  std::ostringstream out, err;
  const int rc = plyth_services::RunPlythctl(args, in, out, err);
  if (code != nullptr) *code = rc;
  return out.str() + err.str();
}

class AccessRequests : public ServicesTest {
 protected:
  void SetUp() override {
    ServicesTest::SetUp();
    setenv("TZ", "UTC", 1);
    tzset();
    plan_ = AddItem("alice", "/docs/plan.txt", "plan");
    AddUser("carol");
  }
  Item plan_;
};

struct CreateRow {
  const char* why;
  std::string user = "carol";
  std::string path = "";  // "" for the plan's own link
  std::string message = "";
  int code;
};

TEST_F(AccessRequests, CreateRefusesWhatCannotBecomeAMember) {
  const std::string longMessage(plyth_services::kMaxRequestMessage + 1, 'x');
  const CreateRow rows[] = {
      {.why = "anonymous", .user = "anonymous", .code = 1002},
      {.why = "file id instead of a link", .path = "id:" + plan_.file_id, .code = 101},
      {.why = "unknown link", .path = "link:NoSuchLink0000", .code = 408},
      {.why = "message too long", .message = longMessage, .code = 101},
      {.why = "accepted", .message = "for the review", .code = 0},
  };
  for (const CreateRow& row : rows) {
    const std::string path = row.path.empty() ? "link:" + plan_.permanent_link : row.path;
    EXPECT_EQ(ErrorCode(RequestAccess(path, row.user, row.message)), row.code) << row.why;
  }
  ASSERT_EQ(plyth_services::SetRemoved(Db(), plan_, true), 0);
  EXPECT_EQ(ErrorCode(RequestAccess("link:" + plan_.permanent_link, "carol")), 408) << "in the recycle bin";
}

TEST_F(AccessRequests, ARepeatedRequestKeepsTheFirst) {
  ASSERT_EQ(ErrorCode(RequestAccess("link:" + plan_.permanent_link, "carol", "first")), 0);
  gNow += 60;
  ASSERT_EQ(ErrorCode(RequestAccess("link:" + plan_.permanent_link, "carol", "again")), 0);
  EXPECT_EQ(Ctl({"requests", "list"}), "alice:/docs/plan.txt\tcarol\t2023-11-14 22:13:20\tfirst\n");
}

TEST_F(AccessRequests, GrantMakesAMemberWithTheLinkRoleAndDenyForgets) {
  AddUser("dave");
  ASSERT_EQ(plyth_services::SetLinkAccess(Db(), plan_, Visibility::kMembers, Role::kCommenter), 0);
  for (const char* user : {"carol", "dave"}) {
    ASSERT_EQ(ErrorCode(RequestAccess("link:" + plan_.permanent_link, user)), 0);
  }
  EXPECT_EQ(ErrorCode(FileGet("link:" + plan_.permanent_link, "carol")), 1002);

  int code = -1;
  EXPECT_EQ(Ctl({"requests", "grant", "alice:/docs/plan.txt", "carol"}, &code), "");
  EXPECT_EQ(code, 0);
  EXPECT_EQ(Ctl({"requests", "deny", "alice:/docs/plan.txt", "dave"}, &code), "");
  EXPECT_EQ(code, 0);
  EXPECT_EQ(Ctl({"requests", "list"}), "");

  const Json::Value carol = FileGet("link:" + plan_.permanent_link, "carol");
  EXPECT_EQ(ErrorCode(carol), 0);
  EXPECT_TRUE(carol["data"]["capabilities"]["can_comment"].asBool());
  EXPECT_EQ(ErrorCode(FileGet("link:" + plan_.permanent_link, "dave")), 1002);
  Ctl({"requests", "deny", "alice:/docs/plan.txt", "dave"}, &code);
  EXPECT_EQ(code, 2) << "no request left to deny";
}

// A browser that navigates to a refused download gets a status and a page;
// a script keeps the JSON error.
class RefusedDownloads : public ServicesTest {
 protected:
  plyth_test::HandlerRun Get(const std::string& path, const std::string& fetchMode) {
    Json::Value params(Json::objectValue);
    params["path"] = path;
    return RunFiles(plyth_services::FilesDownloadFunc, "download", params, "anonymous",
                    {{"HTTP_SEC_FETCH_MODE", fetchMode}});
  }
};

TEST_F(RefusedDownloads, AnswerAPageWithAStatusToANavigation) {
  root_.WriteFile("/usr/zant/zantman/texts/enu/strings",
                  "[download]\ntitle = \"No <download>\"\nremoved = \"In the bin & gone.\"\n");
  const Item binned = AddItem("alice", "/old/binned.txt", "x");
  ASSERT_EQ(plyth_services::SetLinkAccess(Db(), binned, Visibility::kAnyone, Role::kViewer), 0);
  ASSERT_EQ(plyth_services::SetRemoved(Db(), binned, true), 0);
  const std::string body =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"UTF-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      "<title>No &lt;download&gt;</title>\n</head>\n<body>\n<h1>No &lt;download&gt;</h1>\n"
      "<p>In the bin &amp; gone.</p>\n</body>\n</html>\n";
  EXPECT_EQ(Get("link:" + binned.permanent_link, "navigate").answer,
            "Status: 410 Gone\r\nContent-Type: text/html; charset=UTF-8\r\nContent-Length: " +
                std::to_string(body.size()) + "\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n\r\n" +
                body);
  const plyth_test::HandlerRun script = Get("link:" + binned.permanent_link, "cors");
  EXPECT_EQ(script.stdoutBytes, "");
  EXPECT_EQ(script.response.GetErrorCode(), 408) << "the bin stays 408 to scripts";
}

struct StatusRow {
  const char* why;
  std::string path;
  std::string status;
};

TEST_F(RefusedDownloads, StatusesFitTheRefusal) {
  const Item plan = AddItem("alice", "/docs/plan.txt", "plan");
  const Item folder = Find("alice", "/docs");
  ASSERT_EQ(plyth_services::SetLinkAccess(Db(), folder, Visibility::kAnyone, Role::kViewer), 0);
  const StatusRow rows[] = {
      {.why = "no path", .path = "", .status = "400 Bad Request"},
      {.why = "unknown link", .path = "link:NoSuchLink0000", .status = "404 Not Found"},
      {.why = "members only", .path = "link:" + plan.permanent_link, .status = "403 Forbidden"},
      {.why = "folder", .path = "link:" + folder.permanent_link, .status = "403 Forbidden"},
  };
  for (const StatusRow& row : rows) {
    const std::string answer = Get(row.path, "navigate").answer;
    EXPECT_EQ(answer.substr(0, answer.find("\r\n")), "Status: " + row.status) << row.why;
  }
}

}  // namespace
}  // namespace services_test
