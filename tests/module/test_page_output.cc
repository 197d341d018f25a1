// Pages on standard output: the exact header block, the filled body, and
// the two text helpers beside them.
#include <sys/time.h>

#include <string>

#include <gtest/gtest.h>

#include "harness.h"
#include "page_output.h"
#include "zant/nxo.h"

namespace {

using plyth_test::ApplianceRoot;
using plyth_test::StdoutCapture;

const char kTemplate[] = "/var/packages/BrindlexPlyth/target/webapi/plyth/shard/test.html";

std::string Render(const char* path, const Json::Value& values, ZANT::APIResponse& response) {
  StdoutCapture out;
  RenderTemplatePage(&response, path, values);
  return out.Take();
}

Json::Value Title(const std::string& title) {
  Json::Value values(Json::objectValue);
  values["TITLE"] = title;
  return values;
}

TEST(RenderTemplatePage, WritesHeadersFromSecurityConfThenTheFilledTemplate) {
  ApplianceRoot root;
  root.WriteFile(kTemplate, "<title>{{TITLE}}</title>\n");
  root.WriteFile("/usr/zant/etc/security.conf",
                 "x_frame_options=\"DENY\"\ncontent_security_policy=\"default-src 'none'\"\n");
  ZANT::APIResponse response;

  std::string out = Render(kTemplate, Title("Shared"), response);

  EXPECT_EQ(out,
            "Content-Type:text/html; charset=\"UTF-8\"\r\n"
            "X-Frame-Options:DENY\r\n"
            "Content-Security-Policy:default-src 'none'\r\n"
            "\r\n"
            "<title>Shared</title>\n");
  EXPECT_FALSE(response.IsEnableOutput());
}

TEST(RenderTemplatePage, UsesTheDesktopDefaultsWithoutSecurityConf) {
  ApplianceRoot root;
  root.WriteFile(kTemplate, "body");
  ZANT::APIResponse response;

  std::string out = Render(kTemplate, Json::Value(Json::objectValue), response);

  std::vector<std::string> headers;
  std::string body;
  plyth_test::SplitHeaders(out, headers, body);
  EXPECT_EQ(headers, (std::vector<std::string>{
                         "Content-Type:text/html; charset=\"UTF-8\"",
                         std::string("X-Frame-Options:") +
                             ZANT::NXO::SecurityOptions::DefaultXFrameOption(),
                         std::string("Content-Security-Policy:") +
                             ZANT::NXO::SecurityOptions::DefaultCSP(),
                     }));
  EXPECT_EQ(body, "body");
}

TEST(RenderTemplatePage, BodyEndsAtTheFirstNul) {
  ApplianceRoot root;
  root.WriteFile(kTemplate, "<p>{{TITLE}}</p>");
  ZANT::APIResponse response;

  std::string out = Render(kTemplate, Title(std::string("ab\0cd", 5)), response);

  std::vector<std::string> headers;
  std::string body;
  plyth_test::SplitHeaders(out, headers, body);
  EXPECT_EQ(body, "<p>ab");
}

TEST(RenderTemplatePage, MissingTemplateWritesNothingAndLeavesOutputOn) {
  ApplianceRoot root;
  ZANT::APIResponse response;

  EXPECT_EQ(Render(kTemplate, Title("x"), response), "");
  EXPECT_TRUE(response.IsEnableOutput());
}

TEST(RenderTemplatePage, TemplatePathIsPlacedUnderTheApplianceRoot) {
  ApplianceRoot root;
  root.WriteFile(kTemplate, "x");
  ZANT::APIResponse response;

  // The host path itself is not an appliance path: it would be placed twice.
  EXPECT_EQ(Render(root.Host(kTemplate).c_str(), Title("x"), response), "");
  EXPECT_NE(Render(kTemplate, Title("x"), response), "");
}

struct EscapeCase {
  const char* description;
  std::string input;
  std::string expected;
};
void PrintTo(const EscapeCase& c, std::ostream* os) { *os << c.description; }

class HtmlEscapeTest : public ::testing::TestWithParam<EscapeCase> {};

TEST_P(HtmlEscapeTest, EscapesExactlyFiveCharacters) {
  EXPECT_EQ(HtmlEscape(GetParam().input), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, HtmlEscapeTest,
    ::testing::Values(
        EscapeCase{"empty", "", ""},
        EscapeCase{"the five in a row", "<>&\"'", "&lt;&gt;&amp;&quot;&#39;"},
        EscapeCase{"plain text and other markup stay", "a/b=c;\n\t`", "a/b=c;\n\t`"},
        EscapeCase{"entities are escaped again", "&amp;", "&amp;amp;"},
        EscapeCase{"UTF-8 passes", "caf\xc3\xa9 \xe2\x9c\x93", "caf\xc3\xa9 \xe2\x9c\x93"},
        EscapeCase{"embedded NUL kept", std::string("a\0<", 3), std::string("a\0&lt;", 6)}),
    [](const ::testing::TestParamInfo<EscapeCase>& info) { return std::to_string(info.index); });

void SetMTime(const std::string& hostPath, time_t when) {
  struct timeval times[2] = {{when, 0}, {when, 0}};
  ASSERT_EQ(utimes(hostPath.c_str(), times), 0);
}

TEST(VersionedURL, AppendsTheWebFileModifyTime) {
  ApplianceRoot root;
  root.WriteFile("/usr/zant/zantman/webman/app.js", "");
  SetMTime(root.Host("/usr/zant/zantman/webman/app.js"), 1234567890);

  EXPECT_EQ(VersionedURL("webman/app.js"), "webman/app.js?v=1234567890");
}

TEST(VersionedURL, KeepsQuestionMarkAfterAnExistingQuery) {
  ApplianceRoot root;
  root.WriteFile("/usr/zant/zantman/webman/app.js", "");
  SetMTime(root.Host("/usr/zant/zantman/webman/app.js"), 1234567890);

  EXPECT_EQ(VersionedURL("webman/app.js?lang=enu"), "webman/app.js?lang=enu?v=1234567890");
}

}  // namespace
