// The mobile pages as the dispatcher writes them into mobile.html: for each
// page code its theme, script, texts and the state handed to the script.
#include <utime.h>

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "harness.h"
#include "mobile_route.h"

namespace {

using plyth_test::ApplianceRoot;
using plyth_test::FakeAPI;

const char kTemplate[] = "/var/packages/BrindlexPlyth/target/webapi/plyth/shard/mobile.html";
const char kKeys[][16] = {"TITLE",        "FAVICON",      "BODY_CLASS", "CSS",
                          "CONTENT_TITLE", "CONTENT_DESC", "JS_TAGS",    "STATE"};
const char kWebman[] = "/usr/zant/zantman/webman/3rdparty/BrindlexPlyth-Plyth/";

// Each text names itself, apart from three that need escaping.
const char kStrings[] =
    "[plyth]\n"
    "displayname = \"Plyth & Co\"\n"
    "[mobile]\n"
    "choose_action = \"mobile.choose_action\"\n"
    "open_in_app = \"mobile.open_in_app\"\n"
    "open_the_link = \"mobile.open_the_link\"\n"
    "request_sent = \"mobile.request_sent\"\n"
    "[request]\n"
    "no_perm_title = \"No <permission>\"\n"
    "user = \"Signed in as \\\"someone\\\"\"\n"
    "sent = \"request.sent\"\n"
    "access = \"request.access\"\n"
    "switch_account = \"request.switch_account\"\n"
    "not_exist_title = \"request.not_exist_title\"\n"
    "[action]\n"
    "download = \"action.download\"\n"
    "[share]\n"
    "expired_title = \"share.expired_title\"\n"
    "expired_link_desc = \"share.expired_link_desc\"\n"
    "[error]\n"
    "item_not_exist = \"error.item_not_exist\"\n";

Json::Value Parse(const std::string& text) {
  Json::Value value;
  EXPECT_TRUE(Json::Reader().parse(text, value)) << text;
  return value;
}

std::string Unescape(std::string text) {
  const std::pair<const char*, const char*> entities[] = {
      {"&quot;", "\""}, {"&#39;", "'"}, {"&lt;", "<"}, {"&gt;", ">"}, {"&amp;", "&"}};
  for (const auto& entity : entities) {
    for (size_t at = text.find(entity.first); at != std::string::npos;
         at = text.find(entity.first, at + 1)) {
      text.replace(at, strlen(entity.first), entity.second);
    }
  }
  return text;
}

std::string Section(const std::string& body, const std::string& key) {
  std::string open = "@" + key + "@", close = "@/" + key + "@";
  size_t start = body.find(open);
  size_t end = body.find(close);
  if (start == std::string::npos || end == std::string::npos) return "<missing>";
  return body.substr(start + open.size(), end - start - open.size());
}

class MobilePages : public ::testing::Test {
 protected:
  void SetUp() override {
    root_.WriteFile("/var/packages/BrindlexPlyth/target/plyth/texts/enu/strings", kStrings);
    std::string page;
    for (const char* key : kKeys) page += std::string("@") + key + "@{{" + key + "}}@/" + key + "@";
    root_.WriteFile(kTemplate, page);
    const char* scripts[] = {"common", "anonymous", "perm", "info", "expired", "invalid"};
    for (int i = 0; i < 6; ++i) {
      Resource(std::string("js/mobile/") + scripts[i] + ".js", 1300000010 + i);
    }
    Resource("mobile.css", 1300000001);
    info_.AlwaysReturn(FakeAPI::Success(Parse(R"({"qv_id":"QV-7"})")));
    request_.SetServerVar("HTTP_HOST", "nas.example.com");
    request_.SetServerVar("REQUEST_SCHEME", "https");
  }

  void Resource(const std::string& path, time_t mtime) {
    root_.WriteFile(kWebman + path, "//");
    struct utimbuf times = {mtime, mtime};
    ASSERT_EQ(utime(root_.Host(kWebman + path).c_str(), &times), 0);
  }

  // The page body, with the headers checked and split off.
  std::string Write(const std::string& account, int code, const Json::Value& file) {
    MobileRoute route(&request_, link_, sharing_, account, token_);
    ZANT::APIResponse response;
    plyth_test::StdoutCapture out;
    WriteMobilePage(&response, route, code, file);
    std::vector<std::string> headers;
    std::string body;
    plyth_test::SplitHeaders(out.Take(), headers, body);
    EXPECT_EQ(headers.size(), 3u);
    EXPECT_FALSE(response.IsEnableOutput());
    return body;
  }

  ApplianceRoot root_;
  FakeAPI info_{"ZANT.BrindlexPlyth.Info", 1, "get"};
  ZANT::APIRequest request_;
  std::string link_ = "AbC", sharing_ = "sh1", token_ = "tk";
};

struct PageRow {
  const char* description;
  int code;
  const char* account;
  const char* file;  // JSON
  const char* bodyClass;
  const char* title;  // TITLE as written (escaped)
  const char* contentTitle;
  const char* contentDesc;
  int script;  // 1 anonymous, 2 perm, 3 info, 4 expired, 5 invalid
  const char* state;  // JSON
};
void PrintTo(const PageRow& row, std::ostream* os) { *os << row.description; }

class Page : public MobilePages, public ::testing::WithParamInterface<PageRow> {};

TEST_P(Page, FillsTheTemplate) {
  const PageRow& row = GetParam();
  std::string body = Write(row.account, row.code, Parse(row.file));

  const char* scripts[] = {"common", "anonymous", "perm", "info", "expired", "invalid"};
  std::string tags;
  for (int i : {0, row.script}) {
    tags += std::string("<script type=\"text/javascript\" "
                        "src=\"webman/3rdparty/BrindlexPlyth-Plyth/js/mobile/") +
            scripts[i] + ".js?v=" + std::to_string(1300000010 + i) + "\"></script>\n";
  }
  EXPECT_EQ(Section(body, "TITLE"), row.title);
  EXPECT_EQ(Section(body, "FAVICON"),
            "webman/3rdparty/BrindlexPlyth-Plyth/images/_Asset/_Favicon/Plyth_16.png");
  EXPECT_EQ(Section(body, "BODY_CLASS"), row.bodyClass);
  EXPECT_EQ(Section(body, "CSS"),
            "<link rel=\"stylesheet\" "
            "href=\"webman/3rdparty/BrindlexPlyth-Plyth/mobile.css?v=1300000001\" "
            "type=\"text/css\" charset=\"utf-8\">");
  EXPECT_EQ(Section(body, "CONTENT_TITLE"), row.contentTitle);
  EXPECT_EQ(Section(body, "CONTENT_DESC"), row.contentDesc);
  EXPECT_EQ(Section(body, "JS_TAGS"), tags);
  EXPECT_EQ(Parse(Unescape(Section(body, "STATE"))), Parse(row.state));
}

#define BASE_STATE R"("permanent_link":"AbC","sharing_link":"sh1","zant_token":"tk")"
#define HOST_INFO(account) \
  R"("host_info":{"host":"nas.example.com","https":true,"account":")" account R"(","qv_id":"QV-7"})"

INSTANTIATE_TEST_SUITE_P(
    Rows, Page,
    ::testing::Values(
        PageRow{"0 anonymous: sign-in page", 0, "anonymous", "null", "zant-dm-plyth-theme",
                "Plyth &amp; Co", "Plyth &amp; Co", "mobile.choose_action", 1,
                "{" BASE_STATE "," HOST_INFO("anonymous")
                R"(,"btns":["mobile.open_in_app","mobile.open_the_link"]})"},
        PageRow{"0 Anonymous is a user: no-permission page", 0, "Anonymous",
                R"({"name":"x.pdf"})", "zant-dm-file-theme", "No &lt;permission&gt;",
                "No &lt;permission&gt;", "Signed in as &quot;someone&quot;", 2,
                "{" BASE_STATE R"(,"account":"Anonymous",)"
                R"("i18n":{"title":"mobile.request_sent","sent":"request.sent"},)"
                R"("btns":["request.access","request.switch_account"]})"},
        PageRow{"1 readable: open and download", 1, "alice",
                R"({"file_id":"F1","name":"a<b>.pdf","type":"file","size":3})",
                "zant-dm-file-theme", "a&lt;b&gt;.pdf", "", "a&lt;b&gt;.pdf", 3,
                "{" BASE_STATE "," HOST_INFO("alice")
                R"(,"file_info":{"file_id":"F1","name":"a<b>.pdf","type":"file"},)"
                R"("btns":["mobile.open_in_app","action.download"]})"},
        PageRow{"2 preview only: open only", 2, "alice",
                R"({"file_id":"F1","name":"a.pdf","type":"file"})", "zant-dm-file-theme",
                "a.pdf", "", "a.pdf", 3,
                "{" BASE_STATE "," HOST_INFO("alice")
                R"(,"file_info":{"file_id":"F1","name":"a.pdf","type":"file"},)"
                R"("btns":["mobile.open_in_app"]})"},
        PageRow{"1 without a record: null file members", 1, "alice", "null",
                "zant-dm-file-theme", "", "", "", 3,
                "{" BASE_STATE "," HOST_INFO("alice")
                R"(,"file_info":{"file_id":null,"name":null,"type":null},)"
                R"("btns":["mobile.open_in_app","action.download"]})"},
        PageRow{"3 invalid link", 3, "alice", "null", "zant-dm-file-theme",
                "request.not_exist_title", "request.not_exist_title", "error.item_not_exist", 5,
                "{" BASE_STATE "}"},
        PageRow{"4 expired", 4, "anonymous", "null", "zant-dm-file-theme",
                "share.expired_title", "share.expired_title", "share.expired_link_desc", 4,
                "{" BASE_STATE "}"}),
    [](const auto& info) { return "Row" + std::to_string(info.index); });

TEST_F(MobilePages, ButtonOrderAndEscapingOfTheState) {
  std::string body = Write("alice", 0, Json::Value());
  EXPECT_EQ(Section(body, "STATE"),
            "{&quot;account&quot;:&quot;alice&quot;,&quot;btns&quot;:[&quot;request.access&quot;,"
            "&quot;request.switch_account&quot;],&quot;i18n&quot;:{&quot;sent&quot;:&quot;"
            "request.sent&quot;,&quot;title&quot;:&quot;mobile.request_sent&quot;},&quot;"
            "permanent_link&quot;:&quot;AbC&quot;,&quot;sharing_link&quot;:&quot;sh1&quot;,"
            "&quot;zant_token&quot;:&quot;tk&quot;}");
}

class UnknownCode : public MobilePages, public ::testing::WithParamInterface<int> {};

TEST_P(UnknownCode, WritesTheTemplateUnfilled) {
  std::string body = Write("alice", GetParam(), Json::Value());
  std::string empty;
  for (const char* key : kKeys) empty += std::string("@") + key + "@@/" + key + "@";
  EXPECT_EQ(body, empty);
  EXPECT_TRUE(info_.Calls().empty());
}

// 5 (password needed) is answered by the desktop page and never comes here.
INSTANTIATE_TEST_SUITE_P(Codes, UnknownCode, ::testing::Values(5, -1, 6));

}  // namespace
