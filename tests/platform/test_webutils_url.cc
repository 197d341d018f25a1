// URL splitting and modification times of web resources.
#include <gtest/gtest.h>
#include <utime.h>

#include <ctime>
#include <ostream>
#include <string>

#include "harness.h"
#include "zant/webutils.h"

namespace {

struct UrlCase {
  const char* url;
  bool ok;
  const char* protocol;
  const char* host;
  const char* port;
};
void PrintTo(const UrlCase& c, std::ostream* os) { *os << '"' << c.url << '"'; }

class ParseUrlTable : public ::testing::TestWithParam<UrlCase> {};

TEST_P(ParseUrlTable, Splits) {
  const UrlCase& c = GetParam();
  std::string protocol = "p?", host = "h?", port = "n?";
  ASSERT_EQ(c.ok, WebUtils::ParseURL(c.url, protocol, host, port));
  if (c.ok) {
    EXPECT_EQ(c.protocol, protocol);
    EXPECT_EQ(c.host, host);
    EXPECT_EQ(c.port, port);
  } else {
    // A refused URL leaves the outputs alone.
    EXPECT_EQ("p?", protocol);
    EXPECT_EQ("h?", host);
    EXPECT_EQ("n?", port);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Urls, ParseUrlTable,
    ::testing::Values(
        // Default ports.
        UrlCase{"http://nas.example.com", true, "http", "nas.example.com", "80"},
        UrlCase{"https://nas.example.com/", true, "https", "nas.example.com", "443"},
        UrlCase{"HTTPS://nas", true, "HTTPS", "nas", "443"},
        UrlCase{"ftp://nas/x", true, "ftp", "nas", ""},
        UrlCase{"ws://nas", true, "ws", "nas", ""},
        // Written ports.
        UrlCase{"http://nas:5000/d/s/abc", true, "http", "nas", "5000"},
        UrlCase{"https://nas:80", true, "https", "nas", "80"},
        UrlCase{"http://nas:0080/", true, "http", "nas", "80"},
        UrlCase{"http://nas:1", true, "http", "nas", "1"},
        UrlCase{"http://nas:65535", true, "http", "nas", "65535"},
        UrlCase{"ftp://nas:21", true, "ftp", "nas", "21"},
        // Where the host ends.
        UrlCase{"https://nas:5001?x=1", true, "https", "nas", "5001"},
        UrlCase{"https://nas#top", true, "https", "nas", "443"},
        UrlCase{"https://nas/a:b@c", true, "https", "nas", "443"},
        UrlCase{"https://nas/path?q=http://other:99/", true, "https", "nas", "443"},
        // Case kept.
        UrlCase{"http://NAS.Example.COM:8080", true, "http", "NAS.Example.COM", "8080"},
        // Credentials dropped.
        UrlCase{"https://user@nas:5001/", true, "https", "nas", "5001"},
        UrlCase{"https://user:pw@nas/", true, "https", "nas", "443"},
        UrlCase{"https://a@b@nas:7/", true, "https", "nas", "7"},
        UrlCase{"https://evil.com@nas.example.com/", true, "https", "nas.example.com", "443"},
        // Addresses.
        UrlCase{"http://192.168.1.2:5000", true, "http", "192.168.1.2", "5000"},
        UrlCase{"http://[::1]", true, "http", "[::1]", "80"},
        UrlCase{"https://[fe80::1%25eth0]:5001/", true, "https", "[fe80::1%25eth0]", "5001"},
        UrlCase{"http://[2001:DB8::1]:8080/x", true, "http", "[2001:DB8::1]", "8080"},
        UrlCase{"http://[::ffff:10.0.0.1]", true, "http", "[::ffff:10.0.0.1]", "80"},
        // Refused.
        UrlCase{"nas.example.com", false, "", "", ""},
        UrlCase{"nas:5000/x", false, "", "", ""},
        UrlCase{"", false, "", "", ""},
        UrlCase{"://nas", false, "", "", ""},
        UrlCase{"1http://nas", false, "", "", ""},
        UrlCase{" http://nas", false, "", "", ""},
        UrlCase{"http://", false, "", "", ""},
        UrlCase{"http:///path", false, "", "", ""},
        UrlCase{"http://:80", false, "", "", ""},
        UrlCase{"http://user@", false, "", "", ""},
        UrlCase{"http://nas:", false, "", "", ""},
        UrlCase{"http://nas:abc", false, "", "", ""},
        UrlCase{"http://nas:80a", false, "", "", ""},
        UrlCase{"http://nas:-80", false, "", "", ""},
        UrlCase{"http://nas:+80", false, "", "", ""},
        UrlCase{"http://nas:0", false, "", "", ""},
        UrlCase{"http://nas:65536", false, "", "", ""},
        UrlCase{"http://nas:99999999999999999999", false, "", "", ""},
        UrlCase{"http://nas:80:81", false, "", "", ""},
        UrlCase{"http://::1/", false, "", "", ""},
        UrlCase{"http://[::1", false, "", "", ""},
        UrlCase{"http://[]", false, "", "", ""},
        UrlCase{"http://[::1]x", false, "", "", ""},
        UrlCase{"http://[::1]:", false, "", "", ""},
        UrlCase{"http://[nas.example.com]", false, "", "", ""},
        UrlCase{"http://[::1%]", false, "", "", ""},
        UrlCase{"http://na s/", false, "", "", ""},
        UrlCase{"http://nas\r\nX-Evil: 1", false, "", "", ""},
        UrlCase{"http://<nas>", false, "", "", ""},
        UrlCase{"http://evil.com\\@nas/", false, "", "", ""}));

TEST(ParseUrl, EmbeddedNulRefused) {
  std::string protocol, host, port;
  EXPECT_FALSE(WebUtils::ParseURL(std::string("http://na\0s", 11), protocol, host, port));
}

class ModifyTime : public ::testing::Test {
 protected:
  // Makes the appliance file `path` with the modification time `when`.
  void Touch(const std::string& path, time_t when) {
    root_.WriteFile(path, "x");
    struct utimbuf times = {when, when};
    ASSERT_EQ(0, utime(root_.Host(path).c_str(), &times));
  }
  void ExpectNow(const char* path) {
    long long before = time(nullptr);
    long long answer = std::stoll(WebUtils::GetModifyTime(path));
    long long after = time(nullptr);
    EXPECT_LE(before, answer);
    EXPECT_GE(after, answer);
  }
  plyth_test::ApplianceRoot root_;
};

TEST_F(ModifyTime, RelativePathUnderWebRoot) {
  Touch("/usr/zant/zantman/webman/a.js", 1500000000);
  EXPECT_EQ("1500000000", WebUtils::GetModifyTime("webman/a.js"));
}

TEST_F(ModifyTime, AbsolutePathUnderRoot) {
  Touch("/var/packages/X/b.css", 1400000001);
  EXPECT_EQ("1400000001", WebUtils::GetModifyTime("/var/packages/X/b.css"));
}

TEST_F(ModifyTime, QueryCutAtFirstQuestionMark) {
  Touch("/usr/zant/zantman/webapi/entry.cgi", 1300000002);
  EXPECT_EQ("1300000002", WebUtils::GetModifyTime("webapi/entry.cgi?api=X?v=1"));
}

TEST_F(ModifyTime, RelativePathIsNotRootRelative) {
  Touch("/webman/c.js", 1200000003);
  ExpectNow("webman/c.js");
}

TEST_F(ModifyTime, DirectoryIsNow) {
  Touch("/usr/zant/zantman/webman/d/e.js", 1100000004);
  struct utimbuf old = {1000000000, 1000000000};
  ASSERT_EQ(0, utime(root_.Host("/usr/zant/zantman/webman/d").c_str(), &old));
  ASSERT_EQ(0, utime(root_.Host("/usr/zant/zantman").c_str(), &old));
  ExpectNow("webman/d");
  ExpectNow("");
}

TEST_F(ModifyTime, MissingFileIsNow) {
  ExpectNow("webman/missing.js");
  ExpectNow("/missing.js");
  ExpectNow("");
  ExpectNow(nullptr);
}

}  // namespace
