// Method "getjs": the seven script functions, the error code each link state
// gives, the token cookie line before the content type, and error 114.
#include "module_testing.h"
#include "shard_api.h"

namespace {

class GetJSTest : public LinkTest {
 protected:
  GetJSTest() {
    root_.WriteFile("/var/packages/Tabulon/target/ui/texts/enu/strings", "[office]\nsave = \"Save\"\n");
    request_.SetAPI("ZANT.BrindlexPlyth.Shard", 1, "getjs");
  }
};

TEST_F(GetJSTest, LinkThatIsNoTextGetsTheFrameworksError114) {
  for (const Json::Value& link : {Json::Value(5), Json::Value(Json::objectValue), Json::Value()}) {
    request_.SetParam("permanent_link", link);
    request_.SetParam("sharing_link", "S1");
    HandlerRun run = plyth_test::RunHandler(GetJSFunc, request_);
    EXPECT_EQ(run.stdoutBytes, "");  // the framework answers the error
    EXPECT_EQ(run.response.GetErrorCode(), 114);
  }
  EXPECT_TRUE(files_.Calls().empty() && auth_.Calls().empty());
}

// The link service's results; the token cookie's value (null: no cookie line);
// the user who fetched (null: no fetch, so no record) and the token sent.
struct Row {
  const char *description, *sharingLink = "" /* empty: absent */, *cookie = nullptr /* null: none */;
  Visitor visitor = {};
  Json::Value unlock = {}, fetch = Found({});
  const char *errCode = "0", *link = "P\"1", *cookieLine = nullptr, *fetchUser = "anonymous", *fetchToken = nullptr;
  bool hasFile = true;
};

class Script : public GetJSTest, public ::testing::WithParamInterface<Row> {};

TEST_P(Script, TellsThePage) {
  const Row& row = GetParam();
  files_.AlwaysReturn(row.fetch);
  auth_.AlwaysReturn(row.unlock);
  request_.SetParam("permanent_link", "P\"1");  // written between the quotes as it comes
  if (*row.sharingLink != '\0') request_.SetParam("sharing_link", row.sharingLink);
  if (row.cookie != nullptr) request_.SetCookie("plyth-sharing-S1", row.cookie);
  SetVisitor(row.visitor);
  HandlerRun run = plyth_test::RunHandler(GetJSFunc, request_);

  const std::string cookie =
      row.cookieLine ? "Set-Cookie: plyth-sharing-S1=" + std::string(row.cookieLine) + "; path=/\r\n" : "";
  const std::string file = row.hasFile && row.fetchUser ? Text(row.fetch["data"]) : "";
  EXPECT_EQ(run.answer, run.stdoutBytes);
  EXPECT_EQ(run.answer, cookie + "Content-Type:application/javascript; charset=\"UTF-8\"\r\n\r\n"
            "window.getPlythShareMode=function(){return 'public';}\r\n"
            "window.getPlythErrCode=function(){return " + row.errCode + ";}\r\n"
            "window.getPlythLink=function(){return \"" + row.link + "\";}\r\n"
            "window.getPlythSharingLink=function(){return \"" + row.sharingLink + "\";}\r\n"
            "window.getPlythFile=function(){return " + file + ";}\r\n"
            "window.getPlythTexts=function(){return {\"action\":{\"download\":\"DownloadBtn\"}};}\r\n"
            "window.getOfficeTexts=function(){return {\"office\":{\"save\":\"Save\"}};}");
  Json::Value sent = Parse(R"({"path":"link:P\"1"})");
  if (row.fetchToken != nullptr) sent["sharing_token"] = row.fetchToken;
  EXPECT_EQ(files_.Calls().size(), row.fetchUser == nullptr ? 0u : 1u);
  for (const auto& c : files_.Calls()) EXPECT_EQ(c.user + Text(c.params), row.fetchUser + Text(sent));
  for (const auto& c : auth_.Calls()) EXPECT_EQ(c.user + Text(c.params), kUnlockCall);
}


INSTANTIATE_TEST_SUITE_P(Rows, Script, ::testing::ValuesIn(std::vector<Row>{
    {.description = "anonymous"},
    {.description = "signed in", .visitor = {SignIn::kAlice, "bob"}, .fetchUser = "alice"},
    {.description = "web server names a user", .visitor = {SignIn::kWebServer, "bob"}, .fetchUser = "bob"},
    {.description = "web server auth without USERNAME", .visitor = {SignIn::kWebServer}},
    {.description = "USERNAME without web server auth", .visitor = {SignIn::kNone, "bob"}},
    {.description = "1002", .fetch = Failed(1002), .errCode = "1002", .hasFile = false},
    {.description = "removed: no link", .fetch = Found({.removed = true}), .link = "", .hasFile = false},
    {.description = "not previewable", .fetch = Found({.canPreview = false}), .hasFile = false},
    {.description = "cookie", .sharingLink = "S1", .cookie = "OLD", .visitor = {SignIn::kAlice}, .unlock = Failed(1037),
     .fetchToken = "OLD"},
    {.description = "empty cookie", .sharingLink = "S1", .cookie = "", .unlock = Unlocked(), .cookieLine = "NEW",
     .fetchToken = "NEW"},
    {.description = "1037", .sharingLink = "S1", .unlock = Failed(1037), .errCode = "1037", .fetchUser = nullptr},
    {.description = "1038", .sharingLink = "S1", .unlock = Failed(1038), .errCode = "1038", .fetchUser = nullptr},
    {.description = "other failures: 1036", .sharingLink = "S1", .unlock = Failed(1002), .errCode = "1036",
     .fetchUser = nullptr},
    {.description = "no code: unlocked", .sharingLink = "S1", .unlock = FakeAPI::FailureWithoutError(),
     .cookieLine = ""}}));

}  // namespace
