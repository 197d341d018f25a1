// The desktop landing page: the icon category of a record, the crawler's
// host, and every template value of shard.html. The web root is read once
// per process, so one test makes the appliance root whose resources carry a
// known modification time and writes every page.
#include <stdlib.h>

#include <ctime>
#include <regex>

#include "module_testing.h"
#include "share_page.h"

namespace {

const char* const kResources[] = {
    "webapi/entry.cgi", "scripts/ext-3/adapter/ext/ext-base.js", "scripts/ext-3/ext-all.js",
    "scripts/ext-3/ux/ux-all.js", "scripts/scrollbar/flexcroll.js",
    "webman/3rdparty/BrindlexPlyth-Plyth/public_share_base.js", "webman/3rdparty/BrindlexPlyth-Plyth/public_share.js",
    "scripts/ext-3/resources/css/ext-all.css", "scripts/ext-3/resources/css/xtheme-gray.css",
    "scripts/ext-3/ux/ux-all.css", "webman/resources/css/desktop.css", "zantQRTjslib/qrt.css",
    "webman/3rdparty/BrindlexPlyth-Plyth/style.css"};

TEST(FileIconCategory, OfTheRecord) {
  const std::pair<const char*, const char*> rows[] = {
      {"photo.JPG", "image"}, {"page.html", "htm"}, {"app.js", "code"}, {"main.c", "xxx"} /* too short */,
      {"a.raw", "xxx"}, {"clip.mpg", "xxx"} /* both listed with blanks */, {"README", "xxx"},
      {"x.ac3", "audio"} /* audio before video */};
  Json::Value file;
  for (const auto& row : rows) {
    file["name"] = row.first;
    EXPECT_EQ(FileIconCategory(file), row.second) << row.first;
  }
}

const char kCrawler[] = "facebookexternalhit/1.1 (+http://www.facebook.com/externalhit_uatext.php)";

// A crawler without a port in the host gets the server's; the page rows
// show that case in every URL.
TEST(ApplyCrawlerHost, LeavesEveryOtherHostAlone) {
  const std::pair<const char*, const char*> rows[] = {
      {"Mozilla/5.0", "nas.example"}, {kCrawler, "nas:8080"}, {kCrawler, "[fe80::1]:8080"}, {kCrawler, "[fe80::1]"}};
  for (const auto& row : rows) {
    ZANT::APIRequest request;
    request.SetServerVar("HTTP_USER_AGENT", row.first);
    request.SetServerVar("HTTP_HOST", row.second);
    request.SetServerVar("SERVER_PORT", "5001");
    ApplyCrawlerHost(&request);
    EXPECT_EQ(request.GetEnv("HTTP_HOST", "").asString(), row.second);
  }
}

// `src` ends with the separator before the version.
std::string Tag(const std::string& src, const char* tail = "") {
  return "<script type=\"text/javascript\" src=\"" + src + "v=1200000000" + tail + "\"></script>\n";
}
std::string Sheet(const std::string& href) {
  return "<link rel=\"stylesheet\" type=\"text/css\" href=\"" + href + "?v=1200000000\" />\n";
}

TEST(SharePage, FillsEveryKey) {
  unsetenv("DOCUMENT_ROOT");
  unsetenv("SCRIPT_FILENAME");
  ApplianceRoot root;
  for (const char* path : kResources) {
    root.WriteFile(std::string("/usr/zant/zantman/") + path, "//");
    SetMTime(root.Host(std::string("/usr/zant/zantman/") + path), 1200000000);
  }
  root.WriteFile("/var/packages/BrindlexPlyth/target/webapi/plyth/shard/shard.html",
                 MarkedTemplate({"NXOJSFILE", "NODEJSFILE", "CSS", "TITLE", "FAVICON", "NODE_URL", "NODE_TITLE",
                                 "NODE_THUMB"}));
  const struct {
    const char *description, *agent, *host, *token, *record;
    const char *pageScriptQuery /* after "...&permanent_link=%22AbC%22" */, *nodeURL, *nodeTitle, *thumbBase, *icon;
  } rows[] = {
      {"token, escaped folder name", "Mozilla/5.0", "nas.example.com:5000", "tok9",
       R"({"name":"My <Docs> & \"more\"","type":"dir"})",
       "&sharing_link=%22sh1%22&ZantToken=tok9", "https://nas.example.com:5000/d/s/sh1",
       "My &lt;Docs&gt; &amp; &quot;more&quot;", "https://nas.example.com:5000/", "folder"},
      {"crawler: the port in every URL", kCrawler, "nas.example.com", "", "null", "&sharing_link=%22sh1%22",
       "https://nas.example.com:5001/d/s/sh1", "", "https://nas.example.com:5001/", "xxx"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.description);
    ZANT::APIRequest request;
    request.SetUILanguage("ger");
    request.SetServerVar("HTTP_USER_AGENT", row.agent);
    request.SetServerVar("HTTP_HOST", row.host);
    request.SetServerVar("REQUEST_SCHEME", "https");
    request.SetServerVar("SERVER_PORT", "5001");
    request.SetServerVar("REQUEST_URI", "/d/s/sh1");
    request.SetServerVar("HOST", "nas.example.com");  // dotted: the browser's own origin
    ZANT::APIResponse response;
    plyth_test::StdoutCapture out;
    time_t before = time(nullptr);
    WriteSharePage(&request, &response, "AbC", "sh1", Parse(row.record), row.token);
    const std::string body = BodyOf(out.Take());  // the header block is the page writer's

    // The page script is never cached: "&_dc=" and the current time.
    std::string pageScripts = Section(body, "NODEJSFILE");
    std::smatch dc;
    ASSERT_TRUE(std::regex_search(pageScripts, dc, std::regex("&_dc=([0-9]+)"))) << pageScripts;
    EXPECT_TRUE(std::stoll(dc[1]) >= before && std::stoll(dc[1]) <= time(nullptr));
    pageScripts.replace(dc.position(1), dc.length(1), "NOW");
    EXPECT_EQ(pageScripts, Tag("webapi/entry.cgi?api=ZANT.BrindlexPlyth.Shard&version=1&method=getjs"
                               "&permanent_link=%22AbC%22" + std::string(row.pageScriptQuery) + "&",
                               "&_dc=NOW") +
                               Tag("webman/3rdparty/BrindlexPlyth-Plyth/public_share.js?"));
    // The page's own resources in the fixture's order: five scripts, then six sheets.
    std::string scripts = Tag("webapi/entry.cgi?api=ZANT.Core.Desktop.Defs&version=1&method=getjs&") +
        Tag("webapi/entry.cgi?api=ZANT.Core.Desktop.JSUIString&version=1&method=getjs&lang=ger&") +
        Tag("webapi/entry.cgi?api=ZANT.Core.Desktop.UIString&method=getjs&version=1&lang=ger&"), sheets;
    for (int i = 1; i <= 5; ++i) scripts += Tag(kResources[i] + std::string("?"));
    for (int i = 7; i <= 12; ++i) sheets += Sheet(kResources[i]);
    EXPECT_EQ(Section(body, "NXOJSFILE"), scripts);
    EXPECT_EQ(Section(body, "CSS"), sheets);
    EXPECT_EQ(Section(body, "TITLE"), "Brindlex Plyth");
    EXPECT_EQ(Section(body, "FAVICON"), "webman/3rdparty/BrindlexPlyth-Plyth/images/_Asset/_Favicon/Plyth_16.png");
    EXPECT_EQ(Section(body, "NODE_URL"), row.nodeURL);
    EXPECT_EQ(Section(body, "NODE_TITLE"), row.nodeTitle);
    const char kIcons[] = "webman/3rdparty/BrindlexPlyth-Plyth/images/_Asset/FileType/64/";
    EXPECT_EQ(Section(body, "NODE_THUMB"), row.thumbBase + (kIcons + std::string(row.icon)) + ".png");
  }
}

}  // namespace
