// Page templates, URL splitting and modification times of web resources.
#include <gtest/gtest.h>
#include <utime.h>

#include <ctime>
#include <string>

#include "harness.h"
#include "zant/webutils.h"

namespace {

TEST(Template, Fills) {
  Json::Value values;
  values["TITLE"] = "A <b> & \"c\"";
  values["EMPTY"] = "";
  values["NUM"] = 5;
  values["NUL"] = std::string("a\0b", 3);
  values["LOOP"] = "{{TITLE}}";
  const struct Row { const char* d; std::string text, expected; } rows[] = {
      {"inserted as it stands, repeated", "<t>{{TITLE}}{{EMPTY}}{{TITLE}}</t>", "<t>A <b> & \"c\"A <b> & \"c\"</t>"},
      {"missing key, other case, number", "[{{MISSING}}{{title}}{{NUM}}]", "[]"},
      {"NUL bytes kept", "[{{NUL}}]", std::string("[a\0b]", 5)},
      {"inserted text not filled again", "{{LOOP}}", "{{TITLE}}"},
      {"malformed braces kept", "a {{TITLE b {{ }} {{}} {{ TITLE }} f(){{b();}}",
       "a {{TITLE b {{ }} {{}} {{ TITLE }} f(){{b();}}"},
      {"extra braces around a placeholder", "{{{EMPTY}}}", "{}"},
      {"dangling {{ at the end", "x{{EMPTY}}{{", "x{{"},
  };
  for (const Row& row : rows) {
    WebUtils::Template tpl;
    tpl.SetText(row.text);
    EXPECT_EQ(row.expected, tpl.ApplyValues(values)) << row.d;
  }
}

TEST(ParseUrl, Splits) {
  // A refused URL leaves the outputs alone ("-"). strchr() matches the NUL that
  // ends its set: a NUL byte in a host name or an IPv6 zone must still refuse the URL.
  const struct Row { std::string url; bool ok; const char *protocol = "-", *host = "-", *port = "-"; } rows[] = {
      {"http://nas.example.com", true, "http", "nas.example.com", "80"},
      {"HTTPS://NAS/", true, "HTTPS", "NAS", "443"},
      {"ftp://nas/x", true, "ftp", "nas", ""},
      {"http://nas:0080/d/s/abc", true, "http", "nas", "80"},
      {"https://nas:5001?x=1", true, "https", "nas", "5001"},
      {"https://nas/path?q=http://other:99/", true, "https", "nas", "443"},
      {"https://evil.com@user:pw@nas:7/", true, "https", "nas", "7"},
      {"https://[fe80::1%25eth0]:5001/", true, "https", "[fe80::1%25eth0]", "5001"},
      {"nas:5000/x", false},
      {"http://:80", false},
      {"http://nas:+80", false},
      {"http://nas:65536", false},
      {"http://[::1]x", false},
      {"http://nas\r\nX-Evil: 1", false},
      {"http://evil.com\\@nas/", false},
      {std::string("http://nas\0evil/", 16), false},
      {std::string("https://[fe80::1%25e\0th0]:443/", 30), false},
  };
  for (const Row& row : rows) {
    std::string protocol = "-", host = "-", port = "-";
    ASSERT_EQ(row.ok, WebUtils::ParseURL(row.url, protocol, host, port)) << row.url;
    EXPECT_EQ(row.protocol + std::string(" ") + row.host + " " + row.port, protocol + " " + host + " " + port)
        << row.url;
  }
}

TEST(ModifyTime, AbsoluteUnderRootOrNow) {
  plyth_test::ApplianceRoot root;
  for (const char* path : {"/var/packages/X/b.css", "/webman/c.js"}) {
    root.WriteFile(path, "x");
    struct utimbuf times = {1400000001, 1400000001};
    ASSERT_EQ(0, utime(root.Host(path).c_str(), &times));
  }
  EXPECT_EQ("1400000001", WebUtils::GetModifyTime("/var/packages/X/b.css"));
  // A relative path is under the web root, not the root: none of these has a file, so the answer is now.
  for (const char* path : {"webman/c.js", "webman/missing.js", static_cast<const char*>(nullptr)}) {
    const long long before = time(nullptr);
    const long long answer = std::stoll(WebUtils::GetModifyTime(path));
    EXPECT_LE(before, answer) << (path ? path : "null");
    EXPECT_GE(time(nullptr), answer) << (path ? path : "null");
  }
}

}  // namespace
