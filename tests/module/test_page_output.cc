// Pages on standard output: the exact header block, the filled body, and
// the escaping of values.
#include "module_testing.h"
#include "page_output.h"

namespace {

const char kTemplate[] = "/var/packages/BrindlexPlyth/target/webapi/plyth/shard/test.html";

std::string Render(const std::string& path, const std::string& title, ZANT::APIResponse& response) {
  Json::Value values;
  values["TITLE"] = title;
  plyth_test::StdoutCapture out;
  RenderTemplatePage(&response, path.c_str(), values);
  return out.Take();
}

TEST(RenderTemplatePage, HeadersFromSecurityConfThenTheBodyUpToANul) {
  ApplianceRoot root;
  root.WriteFile(kTemplate, "<title>{{TITLE}}</title>\n");
  root.WriteFile("/usr/zant/etc/security.conf",
                 "x_frame_options=\"DENY\"\ncontent_security_policy=\"default-src 'none'\"\n");
  ZANT::APIResponse response;
  // A missing template writes nothing and leaves the answer to the framework. A host
  // path is taken as an appliance path and placed under the root again: missing.
  EXPECT_EQ(Render(root.Host(kTemplate), "x", response), "");
  EXPECT_TRUE(response.IsEnableOutput());
  EXPECT_EQ(Render(kTemplate, std::string("Sha\0red", 7), response),
            "Content-Type:text/html; charset=\"UTF-8\"\r\n"
            "X-Frame-Options:DENY\r\n"
            "Content-Security-Policy:default-src 'none'\r\n"
            "\r\n"
            "<title>Sha");
  EXPECT_FALSE(response.IsEnableOutput());
}

TEST(PageText, HtmlEscapeEscapesTheFiveMarkupCharactersOnly) {
  using namespace std::string_literals;
  EXPECT_EQ(HtmlEscape("<>&\"' a/=;`&amp;\0<"s), "&lt;&gt;&amp;&quot;&#39; a/=;`&amp;amp;\0&lt;"s);
}

}  // namespace
