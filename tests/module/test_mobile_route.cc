// The building blocks of the mobile pages: the phone test, the UI texts of
// the visitor's language, the host information and the template values.
#include <utime.h>

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "harness.h"
#include "mobile_route.h"
#include "zant/json_util.h"

namespace {

using plyth_test::ApplianceRoot;
using plyth_test::FakeAPI;

const char kTexts[] = "/var/packages/BrindlexPlyth/target/plyth/texts/";
const char kWebman[] = "/usr/zant/zantman/webman/3rdparty/BrindlexPlyth-Plyth/";

Json::Value Parse(const char* text) {
  Json::Value value;
  EXPECT_TRUE(Json::Reader().parse(text, value)) << text;
  return value;
}

class MobileRouteTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root_.WriteFile(std::string(kTexts) + "enu/strings",
                    "[mobile]\nopen_in_app = \"Open in the app\"\n[share]\nexpired_title = \"Gone\"\n");
    root_.WriteFile(std::string(kTexts) + "ger/strings", "[mobile]\nopen_in_app = \"In der App\"\n");
    Resource("mobile.css", 1300000001);
    Resource("js/mobile/common.js", 1300000002);
    Resource("js/mobile/info.js", 1300000005);
    request_.SetServerVar("HTTP_HOST", "nas.example.com:5001");
    request_.SetServerVar("REQUEST_SCHEME", "https");
  }

  void Resource(const std::string& path, time_t mtime) {
    root_.WriteFile(kWebman + path, "//");
    struct utimbuf times = {mtime, mtime};
    ASSERT_EQ(utime(root_.Host(kWebman + path).c_str(), &times), 0);
  }

  ApplianceRoot root_;
  ZANT::APIRequest request_;
  std::string link_ = "AbC", sharing_ = "sh1", account_ = "alice", token_ = "tk";
};

// ---------------------------------------------------------------- IsMobile

struct AgentRow {
  const char* description;
  const char* agent;  // null: not sent
  bool mobile;
};
void PrintTo(const AgentRow& row, std::ostream* os) { *os << row.description; }

class IsMobile : public ::testing::TestWithParam<AgentRow> {};

TEST_P(IsMobile, ByUserAgent) {
  ZANT::APIRequest request;
  if (GetParam().agent != nullptr) request.SetServerVar("HTTP_USER_AGENT", GetParam().agent);
  EXPECT_EQ(MobileRoute::IsMobile(&request), GetParam().mobile);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, IsMobile,
    ::testing::Values(
        AgentRow{"iPad", "Mozilla/5.0 (iPad; CPU OS 16_0 like Mac OS X)", true},
        AgentRow{"Android", "Mozilla/5.0 (Linux; Android 13; Pixel 7)", true},
        AgentRow{"iPhone", "Mozilla/5.0 (iPhone; CPU iPhone OS 17_0 like Mac OS X)", true},
        AgentRow{"iPod", "Mozilla/5.0 (iPod touch; CPU iPhone OS 12_0)", true},
        AgentRow{"lower-case android", "Mozilla/5.0 (linux; android 13)", false},
        AgentRow{"desktop", "Mozilla/5.0 (X11; Linux x86_64) Chrome/120.0", false},
        AgentRow{"empty", "", false},
        AgentRow{"absent", nullptr, false}),
    [](const auto& info) { return "Row" + std::to_string(info.index); });

// ---------------------------------------------------------------- texts

TEST_F(MobileRouteTest, TextsOfTheVisitorsLanguage) {
  MobileRoute english(&request_, link_, sharing_, account_, token_);
  EXPECT_EQ(english.GetText("mobile", "open_in_app"), "Open in the app");
  EXPECT_EQ(english.GetText("share", "expired_title"), "Gone");
  EXPECT_EQ(english.GetText("mobile", "no_such_key"), "");
  EXPECT_EQ(english.GetText("no_such_section", "open_in_app"), "");

  request_.SetUILanguage("ger");
  MobileRoute german(&request_, link_, sharing_, account_, token_);
  EXPECT_EQ(german.GetText("mobile", "open_in_app"), "In der App");
  EXPECT_EQ(german.GetText("share", "expired_title"), "");  // no fallback language

  request_.SetUILanguage("fre");  // no such directory
  MobileRoute french(&request_, link_, sharing_, account_, token_);
  EXPECT_EQ(french.GetText("mobile", "open_in_app"), "");
}

// ---------------------------------------------------------------- host info

struct HostInfoRow {
  const char* description;
  const char* infoResult;  // whole result object; null: API not there
  const char* scheme;
  const char* expected;
};
void PrintTo(const HostInfoRow& row, std::ostream* os) { *os << row.description; }

class HostInfo : public MobileRouteTest, public ::testing::WithParamInterface<HostInfoRow> {};

TEST_P(HostInfo, AsksTheInformationAPIAsAdmin) {
  const HostInfoRow& row = GetParam();
  request_.SetServerVar("REQUEST_SCHEME", row.scheme);
  std::unique_ptr<FakeAPI> info;
  if (row.infoResult != nullptr) {
    info = std::make_unique<FakeAPI>("ZANT.BrindlexPlyth.Info", 1, "get");
    info->AlwaysReturn(Parse(row.infoResult));
  }
  MobileRoute route(&request_, link_, sharing_, account_, token_);

  EXPECT_EQ(route.GetHostInfo(), Parse(row.expected));
  if (info) {
    ASSERT_EQ(info->Calls().size(), 1u);
    EXPECT_EQ(info->Calls()[0].user, "admin");
  }
}

INSTANTIATE_TEST_SUITE_P(
    Rows, HostInfo,
    ::testing::Values(
        HostInfoRow{"qv_id present", R"({"success":true,"data":{"qv_id":"QV-7","x":1}})",
                    "https",
                    R"({"host":"nas.example.com","https":true,"account":"alice","qv_id":"QV-7"})"},
        HostInfoRow{"data without qv_id", R"({"success":true,"data":{"x":1}})", "https",
                    R"({"host":"nas.example.com","https":true,"account":"alice"})"},
        HostInfoRow{"failed call", R"({"success":false,"error":{"code":1002}})", "http",
                    R"({"host":"nas.example.com","https":false,"account":"alice"})"},
        HostInfoRow{"no information API", nullptr, "http",
                    R"({"host":"nas.example.com","https":false,"account":"alice"})"}),
    [](const auto& info) { return "Row" + std::to_string(info.index); });

// ---------------------------------------------------------------- values

TEST_F(MobileRouteTest, BaseStateHoldsTheLinksAndTheToken) {
  MobileRoute route(&request_, link_, sharing_, account_, token_);
  EXPECT_EQ(route.GetBaseState(),
            Parse(R"({"permanent_link":"AbC","sharing_link":"sh1","zant_token":"tk"})"));
}

TEST_F(MobileRouteTest, ScriptTagsStartWithTheCommonScript) {
  MobileRoute route(&request_, link_, sharing_, account_, token_);
  EXPECT_EQ(route.GetJSTags({"webman/3rdparty/BrindlexPlyth-Plyth/js/mobile/info.js"}),
            "<script type=\"text/javascript\" "
            "src=\"webman/3rdparty/BrindlexPlyth-Plyth/js/mobile/common.js?v=1300000002\">"
            "</script>\n"
            "<script type=\"text/javascript\" "
            "src=\"webman/3rdparty/BrindlexPlyth-Plyth/js/mobile/info.js?v=1300000005\">"
            "</script>\n");
}

TEST_F(MobileRouteTest, TemplateValuesAreEscapedExceptTheBodyClass) {
  MobileRoute route(&request_, link_, sharing_, account_, token_);
  Json::Value state(Json::objectValue);
  state["say"] = "it's \"<b>\" & more";

  Json::Value values = route.GetTplValues("a<b", "Q & A", "<h1>", "'d'",
                                          {"webman/3rdparty/BrindlexPlyth-Plyth/js/mobile/info.js"},
                                          state);

  Json::Value expected(Json::objectValue);
  expected["TITLE"] = "Q &amp; A";
  expected["FAVICON"] = "webman/3rdparty/BrindlexPlyth-Plyth/images/_Asset/_Favicon/Plyth_16.png";
  expected["BODY_CLASS"] = "a<b";
  expected["CSS"] =
      "<link rel=\"stylesheet\" "
      "href=\"webman/3rdparty/BrindlexPlyth-Plyth/mobile.css?v=1300000001\" "
      "type=\"text/css\" charset=\"utf-8\">";
  expected["CONTENT_TITLE"] = "&lt;h1&gt;";
  expected["CONTENT_DESC"] = "&#39;d&#39;";
  expected["JS_TAGS"] =
      route.GetJSTags({"webman/3rdparty/BrindlexPlyth-Plyth/js/mobile/info.js"});
  // {"say":"it's \"<b>\" & more"} as compact JSON, then escaped.
  expected["STATE"] =
      "{&quot;say&quot;:&quot;it&#39;s \\&quot;&lt;b&gt;\\&quot; &amp; more&quot;}";
  EXPECT_EQ(values, expected);
}

}  // namespace
