// The desktop landing page: the icon category of a record, the crawler's
// host, and every template value of shard.html. The web root is read once
// per process, so the whole file shares one appliance root whose resources
// carry known modification times.
#include <stdlib.h>
#include <utime.h>

#include <ctime>
#include <memory>
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "harness.h"
#include "share_page.h"

namespace {

using plyth_test::ApplianceRoot;

const char kShareTemplate[] = "/var/packages/BrindlexPlyth/target/webapi/plyth/shard/shard.html";
const char kKeys[][12] = {"NXOJSFILE", "NODEJSFILE", "CSS",        "TITLE",
                          "FAVICON",   "NODE_URL",   "NODE_TITLE", "NODE_THUMB"};

struct Resource {
  const char* path;
  time_t mtime;
};
const Resource kResources[] = {
    {"webapi/entry.cgi", 1200000001},
    {"scripts/ext-3/adapter/ext/ext-base.js", 1200000002},
    {"scripts/ext-3/ext-all.js", 1200000003},
    {"scripts/ext-3/ux/ux-all.js", 1200000004},
    {"scripts/scrollbar/flexcroll.js", 1200000005},
    {"webman/3rdparty/BrindlexPlyth-Plyth/public_share_base.js", 1200000006},
    {"webman/3rdparty/BrindlexPlyth-Plyth/public_share.js", 1200000007},
    {"scripts/ext-3/resources/css/ext-all.css", 1200000011},
    {"scripts/ext-3/resources/css/xtheme-gray.css", 1200000012},
    {"scripts/ext-3/ux/ux-all.css", 1200000013},
    {"webman/resources/css/desktop.css", 1200000014},
    {"zantQRTjslib/qrt.css", 1200000015},
    {"webman/3rdparty/BrindlexPlyth-Plyth/style.css", 1200000016},
};

class SharedRoot : public ::testing::Environment {
 public:
  static std::unique_ptr<ApplianceRoot> root;

  void SetUp() override {
    unsetenv("DOCUMENT_ROOT");
    unsetenv("SCRIPT_FILENAME");
    root = std::make_unique<ApplianceRoot>();
    for (const Resource& r : kResources) {
      std::string path = std::string("/usr/zant/zantman/") + r.path;
      root->WriteFile(path, "//");
      struct utimbuf times = {r.mtime, r.mtime};
      ASSERT_EQ(utime(root->Host(path).c_str(), &times), 0) << path;
    }
    // One marked section per key, so that each value is read back whole.
    std::string page;
    for (const char* key : kKeys) page += std::string("@") + key + "@{{" + key + "}}@/" + key + "@";
    root->WriteFile(kShareTemplate, page);
  }
  void TearDown() override { root.reset(); }
};
std::unique_ptr<ApplianceRoot> SharedRoot::root;
::testing::Environment* const kRoot = ::testing::AddGlobalTestEnvironment(new SharedRoot);

// ---------------------------------------------------------------- icons

struct IconRow {
  const char* description;
  const char* record;  // JSON
  const char* category;
};

void PrintTo(const IconRow& row, std::ostream* os) { *os << row.description; }

class IconCategory : public ::testing::TestWithParam<IconRow> {};

TEST_P(IconCategory, OfTheRecord) {
  Json::Value file;
  ASSERT_TRUE(Json::Reader().parse(GetParam().record, file));
  EXPECT_EQ(FileIconCategory(file), GetParam().category);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, IconCategory,
    ::testing::Values(
        IconRow{"upper-case extension", R"({"name":"photo.JPG","type":"file"})", "image"},
        IconRow{"png", R"({"name":"photo.png"})", "image"},
        IconRow{"html", R"({"name":"page.html"})", "htm"},
        IconRow{"js", R"({"name":"app.js"})", "code"},
        IconRow{"css", R"({"name":"site.css"})", "code"},
        IconRow{"one-letter c never matches", R"({"name":"main.c"})", "xxx"},
        IconRow{"raw is listed with blanks", R"({"name":"a.raw"})", "xxx"},
        IconRow{"mpg is listed with blanks", R"({"name":"clip.mpg"})", "xxx"},
        IconRow{"no dot", R"({"name":"README"})", "xxx"},
        IconRow{"one-letter extension", R"({"name":"a.b"})", "xxx"},
        IconRow{"trailing dot", R"({"name":"notes."})", "xxx"},
        IconRow{"ac3 is audio before video", R"({"name":"x.ac3"})", "audio"},
        IconRow{"last dot counts", R"({"name":"backup.tar.GZ"})", "zip"},
        IconRow{"hyphenated extension", R"({"name":"show.dvr-ms"})", "video"},
        IconRow{"dot file", R"({"name":".profile"})", "xxx"},
        IconRow{"folder whatever its name", R"({"name":"report.pdf","type":"dir"})", "folder"},
        IconRow{"no name", R"({"type":"file"})", "xxx"},
        IconRow{"null record", "null", "xxx"}),
    [](const auto& info) { return "Row" + std::to_string(info.index); });

// ---------------------------------------------------------------- crawler host

struct CrawlerRow {
  const char* description;
  const char* agent;  // null: not sent
  const char* host;
  const char* serverPort;  // null: not set
  const char* expectedHost;
  bool reinitialised;  // InitEnv was called (an earlier override is gone)
};

void PrintTo(const CrawlerRow& row, std::ostream* os) { *os << row.description; }

class CrawlerHost : public ::testing::TestWithParam<CrawlerRow> {};

TEST_P(CrawlerHost, Host) {
  const CrawlerRow& row = GetParam();
  ZANT::APIRequest request;
  if (row.agent != nullptr) request.SetServerVar("HTTP_USER_AGENT", row.agent);
  request.SetServerVar("HTTP_HOST", row.host);
  if (row.serverPort != nullptr) request.SetServerVar("SERVER_PORT", row.serverPort);
  Json::Value mark(Json::objectValue);
  mark["X_MARK"] = "1";
  request.InitEnv(mark);

  ApplyCrawlerHost(&request);

  EXPECT_EQ(request.GetEnv("HTTP_HOST", "").asString(), row.expectedHost);
  EXPECT_EQ(!request.HasEnv("X_MARK"), row.reinitialised);
}

const char kCrawler[] = "facebookexternalhit/1.1 (+http://www.facebook.com/externalhit_uatext.php)";

INSTANTIATE_TEST_SUITE_P(
    Rows, CrawlerHost,
    ::testing::Values(
        CrawlerRow{"no agent: untouched", nullptr, "nas.example.com", "5000",
                   "nas.example.com", false},
        CrawlerRow{"empty agent: untouched", "", "nas.example.com", "5000", "nas.example.com",
                   false},
        CrawlerRow{"browser: server's view restored", "Mozilla/5.0", "nas.example.com", "5000",
                   "nas.example.com", true},
        CrawlerRow{"crawler, host without port", kCrawler, "nas.example.com", "5001",
                   "nas.example.com:5001", true},
        CrawlerRow{"crawler, host with port", kCrawler, "nas.example.com:8080", "5001",
                   "nas.example.com:8080", false},
        CrawlerRow{"crawler, bracketed IPv6 with port", kCrawler, "[fe80::1]:8080", "5001",
                   "[fe80::1]:8080", false},
        CrawlerRow{"crawler, bracketed IPv6 without port", kCrawler, "[fe80::1]", "5001",
                   "[fe80::1]", false},
        CrawlerRow{"crawler, no server port", kCrawler, "nas.example.com", nullptr,
                   "nas.example.com:", true}),
    [](const auto& info) { return "Row" + std::to_string(info.index); });

// ---------------------------------------------------------------- page values

std::string Tag(const std::string& src) {
  return "<script type=\"text/javascript\" src=\"" + src + "\"></script>\n";
}

std::string DesktopScripts(const std::string& lang) {
  return Tag("webapi/entry.cgi?api=ZANT.Core.Desktop.Defs&version=1&method=getjs&v=1200000001") +
         Tag("webapi/entry.cgi?api=ZANT.Core.Desktop.JSUIString&version=1&method=getjs&lang=" +
             lang + "&v=1200000001") +
         Tag("webapi/entry.cgi?api=ZANT.Core.Desktop.UIString&method=getjs&version=1&lang=" +
             lang + "&v=1200000001") +
         Tag("scripts/ext-3/adapter/ext/ext-base.js?v=1200000002") +
         Tag("scripts/ext-3/ext-all.js?v=1200000003") +
         Tag("scripts/ext-3/ux/ux-all.js?v=1200000004") +
         Tag("scripts/scrollbar/flexcroll.js?v=1200000005") +
         Tag("webman/3rdparty/BrindlexPlyth-Plyth/public_share_base.js?v=1200000006");
}

const char kStyleSheets[] =
    "<link rel=\"stylesheet\" type=\"text/css\" "
    "href=\"scripts/ext-3/resources/css/ext-all.css?v=1200000011\" />\n"
    "<link rel=\"stylesheet\" type=\"text/css\" "
    "href=\"scripts/ext-3/resources/css/xtheme-gray.css?v=1200000012\" />\n"
    "<link rel=\"stylesheet\" type=\"text/css\" href=\"scripts/ext-3/ux/ux-all.css?v=1200000013\" />\n"
    "<link rel=\"stylesheet\" type=\"text/css\" "
    "href=\"webman/resources/css/desktop.css?v=1200000014\" />\n"
    "<link rel=\"stylesheet\" type=\"text/css\" href=\"zantQRTjslib/qrt.css?v=1200000015\" />\n"
    "<link rel=\"stylesheet\" type=\"text/css\" "
    "href=\"webman/3rdparty/BrindlexPlyth-Plyth/style.css?v=1200000016\" />\n";

const char kThumbDir[] = "webman/3rdparty/BrindlexPlyth-Plyth/images/_Asset/FileType/64/";

struct PageRow {
  const char* description;
  const char* linkId;
  const char* sharingLink;
  const char* token;
  const char* record;  // JSON
  const char* lang;
  const char* agent;
  const char* httpHost;
  const char* scheme;  // REQUEST_SCHEME; empty: not set
  const char* requestURI;
  const char* pageScriptQuery;  // after "...method=getjs"
  const char* nodeURL;
  const char* nodeTitle;
  const char* thumbBase;  // NODE_THUMB up to the icon directory
  const char* icon;
};

void PrintTo(const PageRow& row, std::ostream* os) { *os << row.description; }

class SharePage : public ::testing::TestWithParam<PageRow> {};

std::string Section(const std::string& body, const std::string& key) {
  std::string open = "@" + key + "@", close = "@/" + key + "@";
  size_t start = body.find(open);
  size_t end = body.find(close);
  if (start == std::string::npos || end == std::string::npos) return "<missing>";
  return body.substr(start + open.size(), end - start - open.size());
}

TEST_P(SharePage, FillsEveryKey) {
  const PageRow& row = GetParam();
  Json::Value file;
  ASSERT_TRUE(Json::Reader().parse(row.record, file));
  ZANT::APIRequest request;
  request.SetUILanguage(row.lang);
  request.SetServerVar("HTTP_USER_AGENT", row.agent);
  request.SetServerVar("HTTP_HOST", row.httpHost);
  if (*row.scheme != '\0') request.SetServerVar("REQUEST_SCHEME", row.scheme);
  request.SetServerVar("SERVER_PORT", "5001");
  request.SetServerVar("REQUEST_URI", row.requestURI);
  // A dotted HOST keeps the appliance's own origins out: the browser's view.
  request.SetServerVar("HOST", "nas.example.com");
  ZANT::APIResponse response;

  plyth_test::StdoutCapture out;
  time_t before = time(nullptr);
  WriteSharePage(&request, &response, row.linkId, row.sharingLink, file, row.token);
  time_t after = time(nullptr);
  std::vector<std::string> headers;
  std::string body;
  plyth_test::SplitHeaders(out.Take(), headers, body);

  // The page script is never cached: "&_dc=" and the current time.
  std::string pageScripts = Section(body, "NODEJSFILE");
  std::smatch dc;
  ASSERT_TRUE(std::regex_search(pageScripts, dc, std::regex("&_dc=([0-9]+)"))) << pageScripts;
  EXPECT_GE(std::stoll(dc[1]), before);
  EXPECT_LE(std::stoll(dc[1]), after);
  pageScripts.replace(dc.position(1), dc.length(1), "NOW");

  EXPECT_EQ(Section(body, "NXOJSFILE"), DesktopScripts(row.lang));
  EXPECT_EQ(pageScripts,
            Tag(std::string("webapi/entry.cgi?api=ZANT.BrindlexPlyth.Shard&version=1&method=getjs") +
                row.pageScriptQuery + "&v=1200000001&_dc=NOW") +
                Tag("webman/3rdparty/BrindlexPlyth-Plyth/public_share.js?v=1200000007"));
  EXPECT_EQ(Section(body, "CSS"), kStyleSheets);
  EXPECT_EQ(Section(body, "TITLE"), "Brindlex Plyth");
  EXPECT_EQ(Section(body, "FAVICON"),
            "webman/3rdparty/BrindlexPlyth-Plyth/images/_Asset/_Favicon/Plyth_16.png");
  EXPECT_EQ(Section(body, "NODE_URL"), row.nodeURL);
  EXPECT_EQ(Section(body, "NODE_TITLE"), row.nodeTitle);
  EXPECT_EQ(Section(body, "NODE_THUMB"),
            std::string(row.thumbBase) + kThumbDir + row.icon + ".png");
  EXPECT_FALSE(response.IsEnableOutput());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, SharePage,
    ::testing::Values(
        PageRow{"permanent link only", "AbC", "", "", R"({"name":"photo.JPG","type":"file"})",
                "enu", "Mozilla/5.0", "nas.example.com:5000", "http", "/d/f/AbC",
                "&permanent_link=%22AbC%22", "http://nas.example.com:5000/d/f/AbC", "photo.JPG",
                "http://nas.example.com:5000/", "image"},
        PageRow{"sharing link, token and an encoded folder name", "AbC", "sh1", "tok9",
                R"({"name":"My <Docs> & \"more\"","type":"dir"})", "ger", "Mozilla/5.0",
                "nas.example.com:5001", "https", "/d/s/sh1",
                "&permanent_link=%22AbC%22&sharing_link=%22sh1%22&ZantToken=tok9",
                "https://nas.example.com:5001/d/s/sh1",
                "My &lt;Docs&gt; &amp; &quot;more&quot;", "https://nas.example.com:5001/", "folder"},
        // Without a scheme variable the page URL has none; the base URL says "http".
        PageRow{"token without sharing link, no scheme", "Q", "", "tok", R"({"name":"a.mp3"})",
                "enu", "Mozilla/5.0", "nas", "", "/d/f/Q", "&permanent_link=%22Q%22&ZantToken=tok",
                "://nas/d/f/Q", "a.mp3", "http://nas/", "audio"},
        PageRow{"crawler: the port shows in every URL", "AbC", "sh1", "", "null", "enu",
                kCrawler, "nas.example.com", "https", "/d/s/sh1",
                "&permanent_link=%22AbC%22&sharing_link=%22sh1%22",
                "https://nas.example.com:5001/d/s/sh1", "", "https://nas.example.com:5001/",
                "xxx"}),
    [](const auto& info) { return "Row" + std::to_string(info.index); });

}  // namespace
