// The mobile pages as the dispatcher writes them into mobile.html: for each
// page code its theme, script, texts and the state handed to the script;
// and the phone test and host information they are built from.
#include "mobile_route.h"
#include "module_testing.h"
#include "page_output.h"

namespace {

const char kWebman[] = "/usr/zant/zantman/webman/3rdparty/BrindlexPlyth-Plyth/";
const std::string kTemplate = MarkedTemplate(
    {"TITLE", "FAVICON", "BODY_CLASS", "CSS", "CONTENT_TITLE", "CONTENT_DESC", "JS_TAGS", "STATE"});

TEST(IsMobile, ByUserAgent) {
  const std::pair<const char*, bool> rows[] = {
      {"Mozilla/5.0 (iPad; CPU OS 16_0)", true}, {"Mozilla/5.0 (Linux; Android 13)", true},
      {"Mozilla/5.0 (linux; android 13)", false} /* letter case counts */,
      {"Mozilla/5.0 (X11; Linux x86_64) Chrome/120.0", false}, {nullptr, false}};
  for (const auto& row : rows) {
    ZANT::APIRequest request;
    if (row.first != nullptr) request.SetServerVar("HTTP_USER_AGENT", row.first);
    EXPECT_EQ(MobileRoute::IsMobile(&request), row.second) << row.first;
  }
}

class MobilePages : public ::testing::Test {
 protected:
  void SetUp() override {
    // Each text names itself, apart from three that need escaping.
    std::string texts = "[plyth]\ndisplayname = \"Plyth & Co\"\n[request]\nno_perm_title = "
                        "\"No <permission>\"\nuser = \"Signed in as \\\"someone\\\"\"\n";
    for (std::string name : {"mobile.choose_action", "mobile.open_in_app", "mobile.open_the_link",
                             "mobile.request_sent", "request.sent", "request.access", "request.switch_account",
                             "request.not_exist_title", "action.download", "share.expired_title",
                             "share.expired_link_desc", "error.item_not_exist"}) {
      size_t dot = name.find('.');
      texts += "[" + name.substr(0, dot) + "]\n" + name.substr(dot + 1) + " = \"" + name + "\"\n";
    }
    root_.WriteFile("/var/packages/BrindlexPlyth/target/plyth/texts/enu/strings", texts);
    root_.WriteFile("/var/packages/BrindlexPlyth/target/webapi/plyth/shard/mobile.html", kTemplate);
    for (const char* path : {"js/mobile/common.js", "js/mobile/anonymous.js", "js/mobile/perm.js", "js/mobile/info.js",
                             "js/mobile/expired.js", "js/mobile/invalid.js", "mobile.css"}) {
      root_.WriteFile(kWebman + std::string(path), "//");
      SetMTime(root_.Host(kWebman + std::string(path)), 1300000000);
    }
    info_.AlwaysReturn(FakeAPI::Success(Parse(R"({"qv_id":"QV-7"})")));
    request_.SetServerVar("HTTP_HOST", "nas.example.com");
    request_.SetServerVar("REQUEST_SCHEME", "https");
  }

  MobileRoute Route(const std::string& account) {
    account_ = account;
    return MobileRoute(&request_, link_, sharing_, account_, token_);
  }

  ApplianceRoot root_;
  FakeAPI info_{"ZANT.BrindlexPlyth.Info", 1, "get"};
  ZANT::APIRequest request_;
  std::string link_ = "AbC", sharing_ = "sh1", account_, token_ = "tk";
};

// The page rows show the host information with "qv_id"; without an answer
// from the information API it is left out.
TEST_F(MobilePages, HostInfoAsksTheInformationAPIAsAdmin) {
  info_.AlwaysReturn(FakeAPI::Success(Parse(R"({"x":1})")));
  request_.SetServerVar("REQUEST_SCHEME", "http");
  EXPECT_EQ(Route("alice").GetHostInfo(), Parse(R"({"host":"nas.example.com","https":false,"account":"alice"})"));
  ASSERT_EQ(info_.Calls().size(), 1u);
  EXPECT_EQ(info_.Calls()[0].user, "admin");
}

// TITLE, CONTENT_TITLE and CONTENT_DESC as written (escaped); the state before escaping.
struct PageRow {
  const char* description;
  int code;
  const char *account = "alice", *file = "null", *bodyClass = "zant-dm-file-theme";
  const char *title = "", *contentTitle = "", *contentDesc = "", *script, *state;
};

class Page : public MobilePages, public ::testing::WithParamInterface<PageRow> {};

TEST_P(Page, FillsTheTemplate) {
  const PageRow& row = GetParam();
  // The header block is the page writer's, shown with its own tests.
  ZANT::APIResponse response;
  plyth_test::StdoutCapture out;
  WriteMobilePage(&response, Route(row.account), row.code, Parse(row.file));
  const std::string body = BodyOf(out.Take());
  const std::string tag = "<script type=\"text/javascript\" src=\"webman/3rdparty/BrindlexPlyth-Plyth/js/mobile/";
  EXPECT_EQ(Section(body, "TITLE"), row.title);
  EXPECT_EQ(Section(body, "FAVICON"), "webman/3rdparty/BrindlexPlyth-Plyth/images/_Asset/_Favicon/Plyth_16.png");
  EXPECT_EQ(Section(body, "BODY_CLASS"), row.bodyClass);
  EXPECT_EQ(Section(body, "CSS"), "<link rel=\"stylesheet\" href=\"webman/3rdparty/"
            "BrindlexPlyth-Plyth/mobile.css?v=1300000000\" type=\"text/css\" charset=\"utf-8\">");
  EXPECT_EQ(Section(body, "CONTENT_TITLE"), row.contentTitle);
  EXPECT_EQ(Section(body, "CONTENT_DESC"), row.contentDesc);
  EXPECT_EQ(Section(body, "JS_TAGS"), tag + "common.js?v=1300000000\"></script>\n" + tag +
                                          row.script + ".js?v=1300000000\"></script>\n");
  // Buttons in the listed order; the state escaped for the attribute.
  EXPECT_EQ(Section(body, "STATE"), HtmlEscape(Text(Parse(row.state))));
}

// 5 (a password) never comes here; a code the dispatcher does not know still writes the page, unfilled.
TEST_F(MobilePages, UnknownCodeWritesTheTemplateUnfilled) {
  ZANT::APIResponse response;
  plyth_test::StdoutCapture out;
  WriteMobilePage(&response, Route("alice"), 6, Json::Value());
  EXPECT_EQ(BodyOf(out.Take()), "@TITLE@@/TITLE@@FAVICON@@/FAVICON@@BODY_CLASS@@/BODY_CLASS@@CSS@@/CSS@"
                                "@CONTENT_TITLE@@/CONTENT_TITLE@@CONTENT_DESC@@/CONTENT_DESC@@JS_TAGS@@/JS_TAGS@@STATE@@/STATE@");
}

#define LINKS R"("permanent_link":"AbC","sharing_link":"sh1","zant_token":"tk")"
#define HOST(account) \
  R"("host_info":{"host":"nas.example.com","https":true,"account":")" account R"(","qv_id":"QV-7"})"

const char kNotExist[] = "request.not_exist_title", kExpired[] = "share.expired_title",
           kNoPerm[] = "No &lt;permission&gt;", kPlyth[] = "Plyth &amp; Co";

INSTANTIATE_TEST_SUITE_P(Rows, Page, ::testing::ValuesIn(std::vector<PageRow>{
    {.description = "0 anonymous: sign-in page", .code = 0, .account = "anonymous", .bodyClass = "zant-dm-plyth-theme",
     .title = kPlyth, .contentTitle = kPlyth, .contentDesc = "mobile.choose_action", .script = "anonymous",
     .state = "{" LINKS "," HOST("anonymous") R"(,"btns":["mobile.open_in_app","mobile.open_the_link"]})"},
    // Exact comparison: "Anonymous" is a user name like any other.
    {.description = "0 Anonymous: no-permission page", .code = 0, .account = "Anonymous", .file = R"({"name":"x.pdf"})",
     .title = kNoPerm, .contentTitle = kNoPerm, .contentDesc = "Signed in as &quot;someone&quot;", .script = "perm",
     .state = "{" LINKS R"(,"account":"Anonymous","i18n":{"title":"mobile.request_sent",)"
              R"("sent":"request.sent"},"btns":["request.access","request.switch_account"]})"},
    {.description = "1 readable", .code = 1, .file = R"({"file_id":"F1","name":"a<b>.pdf","type":"file","n":3})",
     .title = "a&lt;b&gt;.pdf", .contentDesc = "a&lt;b&gt;.pdf", .script = "info",
     .state = "{" LINKS "," HOST("alice") R"(,"file_info":{"file_id":"F1","name":"a<b>.pdf",)"
              R"("type":"file"},"btns":["mobile.open_in_app","action.download"]})"},
    {.description = "2 preview only, no record", .code = 2, .script = "info",
     .state = "{" LINKS "," HOST("alice") R"(,"file_info":{"file_id":null,"name":null,"type":null},)"
              R"("btns":["mobile.open_in_app"]})"},
    {.description = "3 invalid link", .code = 3, .title = kNotExist, .contentTitle = kNotExist,
     .contentDesc = "error.item_not_exist", .script = "invalid", .state = "{" LINKS "}"},
    {.description = "4 expired", .code = 4, .account = "anonymous", .title = kExpired, .contentTitle = kExpired,
     .contentDesc = "share.expired_link_desc", .script = "expired", .state = "{" LINKS "}"}}));

}  // namespace
