// Method "getjs": the seven script functions, the error code each link state
// gives, the token cookie line before the content type, and error 114.
#include "module_testing.h"
#include "shard_api.h"

namespace {

const char kContentType[] = "Content-Type:application/javascript; charset=\"UTF-8\"";

// What the named window function returns, as written in the script.
std::string Returned(const std::string& body, const std::string& function) {
  const std::string start = "window." + function + "=function(){return ";
  size_t from = body.find(start);
  if (from == std::string::npos) return "<missing>";
  from += start.size();
  return body.substr(from, body.find(";}", from) - from);
}

class GetJSTest : public LinkTest {
 protected:
  GetJSTest() {
    root_.WriteFile("/var/packages/Tabulon/target/ui/texts/enu/strings",
                    "[office]\nsave = \"Save\"\n");
    request_.SetAPI("ZANT.BrindlexPlyth.Shard", 1, "getjs");
  }
};

TEST_F(GetJSTest, WholeAnswerWithTheLinkWrittenUnescaped) {
  files_.AlwaysReturn(FakeAPI::Success(Parse(R"({"capabilities":{"can_preview":true}})")));
  request_.SetParam("permanent_link", "P\"1");
  HandlerRun run = plyth_test::RunHandler(GetJSFunc, request_);
  EXPECT_EQ(run.answer,
            "Content-Type:application/javascript; charset=\"UTF-8\"\r\n\r\n"
            "window.getPlythShareMode=function(){return 'public';}\r\n"
            "window.getPlythErrCode=function(){return 0;}\r\n"
            "window.getPlythLink=function(){return \"P\"1\";}\r\n"
            "window.getPlythSharingLink=function(){return \"\";}\r\n"
            "window.getPlythFile=function(){return "
            "{\"capabilities\":{\"can_preview\":true}};}\r\n"
            "window.getPlythTexts=function(){return "
            "{\"action\":{\"download\":\"DownloadBtn\"}};}\r\n"
            "window.getOfficeTexts=function(){return {\"office\":{\"save\":\"Save\"}};}");
  EXPECT_EQ(run.answer.substr(run.answer.size() - 2), ";}");
  EXPECT_TRUE(run.logger.empty());
}

TEST_F(GetJSTest, LinkThatIsNoTextGetsTheFrameworksError114) {
  for (const Json::Value& link : {Json::Value(5), Json::Value(Json::objectValue), Json::Value()}) {
    request_.SetParam("permanent_link", link);
    request_.SetParam("sharing_link", "S1");
    HandlerRun run = plyth_test::RunHandler(GetJSFunc, request_);
    EXPECT_EQ(run.stdoutBytes, "");
    EXPECT_EQ(run.answer, "Content-Type: application/json; charset=\"UTF-8\"\r\n\r\n"
                          "{\"error\":{\"code\":114},\"success\":false}");
  }
  EXPECT_TRUE(files_.Calls().empty() && auth_.Calls().empty());
}

// The visitor as LinkTest::SetVisitor takes it; results in short (see Result); the
// cookie's value (null: no cookie line); the user who fetched and the token sent.
struct Row {
  const char *description, *sharingLink /* empty: absent */, *cookie /* null: none */, *visitor;
  const char *unlock, *fetch, *errCode, *link;
  bool hasFile;
  const char *cookieLine, *fetchCall;
};

class Script : public GetJSTest, public ::testing::WithParamInterface<Row> {};

TEST_P(Script, TellsThePage) {
  const Row& row = GetParam();
  files_.AlwaysReturn(Result(row.fetch));
  auth_.AlwaysReturn(Result(row.unlock));
  request_.SetParam("permanent_link", "P1");
  if (*row.sharingLink != '\0') request_.SetParam("sharing_link", row.sharingLink);
  if (row.cookie != nullptr) request_.SetCookie("plyth-sharing-S1", row.cookie);
  SetVisitor(row.visitor);
  HandlerRun run = plyth_test::RunHandler(GetJSFunc, request_);

  Strings headers, expected;
  std::string body;
  plyth_test::SplitHeaders(run.answer, headers, body);
  if (row.cookieLine) {
    expected.push_back("Set-Cookie: plyth-sharing-S1=" + std::string(row.cookieLine) + "; path=/");
  }
  expected.push_back(kContentType);
  EXPECT_EQ(headers, expected);
  EXPECT_EQ(run.answer, run.stdoutBytes);
  EXPECT_EQ(Returned(body, "getPlythErrCode"), row.errCode);
  EXPECT_EQ(Returned(body, "getPlythLink"), "\"" + std::string(row.link) + "\"");
  EXPECT_EQ(Returned(body, "getPlythSharingLink"), "\"" + std::string(row.sharingLink) + "\"");
  EXPECT_EQ(Returned(body, "getPlythFile"), row.hasFile ? Text(Result(row.fetch)["data"]) : "");
  const Strings who = Tokens(row.fetchCall);
  Json::Value sent = Parse(R"({"path":"link:P1"})");
  if (who.size() > 1) sent["sharing_token"] = who[1];
  EXPECT_EQ(files_.Calls().size(), who.empty() ? 0u : 1u);
  for (const auto& c : files_.Calls()) EXPECT_EQ(c.user + Text(c.params), who[0] + Text(sent));
  for (const auto& c : auth_.Calls()) {
    EXPECT_EQ(c.user + Text(c.params), R"(anonymous{"password":"","sharing_link":"S1"})");
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, Script, ::testing::Values(
    Row{"anonymous", "", 0, "", "", "read", "0", "P1", true, 0, "anonymous"},
    Row{"signed in", "", 0, "alice bob", "", "read", "0", "P1", true, 0, "alice"},
    Row{"-7 with USERNAME", "", 0, "-7 bob", "", "read", "0", "P1", true, 0, "bob"},
    Row{"-7 without USERNAME", "", 0, "-7", "", "read", "0", "P1", true, 0, "anonymous"},
    Row{"USERNAME without -7", "", 0, "none bob", "", "read", "0", "P1", true, 0, "anonymous"},
    Row{"1002", "", 0, "", "", "1002", "1002", "P1", false, 0, "anonymous"},
    Row{"removed: no link", "", 0, "", "", "removed", "0", "", false, 0, "anonymous"},
    Row{"not previewable", "", 0, "", "", "noprev", "0", "P1", false, 0, "anonymous"},
    Row{"unlocked", "S1", 0, "", "token", "read", "0", "P1", true, "NEW", "anonymous NEW"},
    Row{"cookie", "S1", "OLD", "alice", "1037", "read", "0", "P1", true, 0, "anonymous OLD"},
    Row{"empty cookie", "S1", "", "", "token", "read", "0", "P1", true, "NEW", "anonymous NEW"},
    Row{"stale cookie", "S1", "OLD", "", "", "1002", "1002", "P1", false, 0, "anonymous OLD"},
    Row{"1037", "S1", 0, "", "1037", "read", "1037", "P1", false, 0, ""},
    Row{"1038", "S1", 0, "", "1038", "read", "1038", "P1", false, 0, ""},
    Row{"other unlock failures: 1036", "S1", 0, "", "1002", "read", "1036", "P1", false, 0, ""},
    Row{"no code: unlocked", "S1", 0, "", "nocode", "read", "0", "P1", true, "", "anonymous"}));

}  // namespace
