// Method "get": which answer each link state gets (page, mobile page or
// redirect), the token cookie lines and their place before the page's
// headers, and the sync logger's lines.
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "module_testing.h"
#include "shard_api.h"

namespace {

const char kDesktopUA[] = "Mozilla/5.0 (X11; Linux x86_64) Chrome/120.0";
const char kPhoneUA[] = "Mozilla/5.0 (iPhone; CPU iPhone OS 16_0 like Mac OS X)";
const char kSetNew[] = "Set-Cookie: plyth-sharing-S1=NEW; path=/";
const char kClear[] = "Set-Cookie: plyth-sharing-S1=; expires=Thu, 01 Jan 1970 00:00:00 GMT; path=/";
const char kSetEmpty[] = "Set-Cookie: plyth-sharing-S1=; path=/";
const char kLoggerLevels[] = "/var/packages/BrindlexPlyth/target/etc/syncfolder.debug";

// A logger line as this process writes it.
std::string LoggerLine(int line, const char* level, const std::string& what) {
  char prefix[64];
  snprintf(prefix, sizeof(prefix), "(%5d:%5d) [%s] get(%d): ", static_cast<int>(getpid()),
           static_cast<int>(syscall(SYS_gettid) % 100000), level, line);
  return prefix + what;
}
// A failed fetch with the cookie's token (line 565) or the unlocked one (584).
std::string CannotGet(int line, const std::string& token) {
  return LoggerLine(line, "ERROR", "cannot get file : link: L1, sharing_token: " + token + ".");
}

// The answer in a few words: "redirect <url>", "desktop" ("+token" when the
// page script carries the sign-in token), or the mobile page's script name
// ("+download" with the download button).
std::string PageOf(const HandlerRun& run) {
  std::string location = run.response.GetHeader("Location");
  if (!location.empty()) return "redirect " + location;
  const std::string body = BodyOf(run.answer);
  if (body.rfind("DESKTOP", 0) == 0) return body.find("&ZantToken=TOK") != body.npos ? "desktop+token" : "desktop";
  if (body.rfind("MOBILE", 0) != 0) return "nothing";
  size_t from = body.rfind("js/mobile/") + 10;  // the page's own script follows common.js
  std::string page = body.substr(from, body.find(".js", from) - from);
  return body.find("DownloadBtn") != std::string::npos ? page + "+download" : page;
}

// The "Set-Cookie" lines, which must all stand before any other header line.
Strings CookieLines(const HandlerRun& run) {
  Strings headers, cookies;
  std::string body;
  plyth_test::SplitHeaders(run.answer, headers, body);
  std::copy_if(headers.begin(), headers.end(), std::back_inserter(cookies),
               [](const std::string& line) { return line.rfind("Set-Cookie: ", 0) == 0; });
  EXPECT_TRUE(std::equal(cookies.begin(), cookies.end(), headers.begin())) << "cookies first";
  return cookies;
}

class GetTest : public LinkTest {
 protected:
  GetTest() {
    root_.WriteFile("/var/packages/BrindlexPlyth/target/webapi/plyth/shard/shard.html", "DESKTOP {{NODEJSFILE}}");
    root_.WriteFile("/var/packages/BrindlexPlyth/target/webapi/plyth/shard/mobile.html", "MOBILE {{JS_TAGS}}{{STATE}}");
  }

  HandlerRun Run(bool phone, const char* sharingLink, const char* linkId) {
    request_.SetAPI("ZANT.BrindlexPlyth.Shard", 1, "get");
    request_.SetServerVar("HTTP_USER_AGENT", phone ? kPhoneUA : kDesktopUA);
    request_.SetServerVar("HTTP_HOST", "nas.example:5000");
    request_.SetServerVar("REQUEST_SCHEME", "http");
    request_.SetServerVar("REQUEST_URI", *sharingLink != '\0' ? "/d/s/S1" : "/d/f/L1");
    if (*sharingLink != '\0') request_.SetParam("sharing_link", sharingLink);
    if (*linkId != '\0') request_.SetParam("link_id", linkId);
    return plyth_test::RunHandler(GetFunc, request_);
  }
};

const Json::Value kRead = Found({}), kNotRead = Failed(1002), kRemoved = Found({.removed = true});
#define OFFICE "redirect http://nas.example:5000/oo/r/L1?sharing_link=S1"

// The link service's results for the fetch with the cookie's token, the unlock,
// and the fetch with the unlocked token "NEW"; the answer's Set-Cookie lines.
struct SharingRow {
  const char* description;
  bool phone = false;
  const char* cookie = nullptr;  // null: no token cookie
  Json::Value fetch = kNotRead, unlock = Unlocked(), fresh = kRead;
  Strings cookies = {}, logger = {};
  const char* page = "desktop";
  size_t unlocks = 1;
  bool debugLevel = false;
};

class Sharing : public GetTest, public ::testing::WithParamInterface<SharingRow> {};

TEST_P(Sharing, AnswersAndCookies) {
  const SharingRow& row = GetParam();
  files_.Respond([&row](const Json::Value& params, const std::string&) {
    return params.get("sharing_token", "") == "NEW" ? row.fresh : row.fetch;
  });
  auth_.AlwaysReturn(row.unlock);
  if (row.cookie != nullptr) request_.SetCookie("plyth-sharing-S1", row.cookie);
  if (row.debugLevel) root_.WriteFile(kLoggerLevels, "default_component=debug\n");
  HandlerRun run = Run(row.phone, "S1", "L1");
  EXPECT_EQ(PageOf(run), row.page);
  EXPECT_EQ(CookieLines(run), row.cookies);
  EXPECT_EQ(run.logger, row.logger);
  EXPECT_EQ(auth_.Calls().size(), row.unlocks);
  for (const auto& call : files_.Calls()) EXPECT_EQ(call.user + Text(call.params["path"]), "anonymous\"link:L1\"");
  for (const auto& call : auth_.Calls()) EXPECT_EQ(call.user + Text(call.params), kUnlockCall);
}

const Strings kNew = {kSetNew}, kGone = {kClear}, kStale = {CannotGet(565, "OLD")};
// A valid cookie whose record carries this name: no unlock.
SharingRow Named(const char* description, const char* name, const char* page, bool phone = false) {
  return {.description = description, .phone = phone, .cookie = "OLD",
          .fetch = Found({.name = name, .canRead = !phone}), .page = page, .unlocks = 0};
}

INSTANTIATE_TEST_SUITE_P(Rows, Sharing, ::testing::ValuesIn(std::vector<SharingRow>{
    {.description = "stale cookie, unlocked", .cookie = "OLD", .cookies = kNew, .logger = kStale},
    {.description = "stale cookie, 1037", .cookie = "OLD", .unlock = Failed(1037), .cookies = kGone, .logger = kStale},
    {.description = "1037 on a phone: desktop page", .phone = true, .unlock = Failed(1037)},
    {.description = "1038 on a phone", .phone = true, .unlock = Failed(1038), .page = "expired"},
    {.description = "other failure on a phone", .phone = true, .unlock = Failed(1001), .page = "invalid"},
    {.description = "empty cookie that fetches", .phone = true, .cookie = "", .fetch = kRead, .unlock = Failed(1001),
     .cookies = kGone, .page = "info+download"},
    {.description = "removed, at debug level", .cookie = "OLD", .fetch = kRemoved, .unlock = Failed(1001),
     .cookies = kGone,
     .logger = {LoggerLine(568, "DEBUG", "advance sharing file is removed : link: L1, sharing_token: OLD.")},
     .debugLevel = true},
    {.description = "no can_read", .phone = true, .fresh = Found({.canRead = false}), .cookies = kNew, .page = "info"},
    // A failed fetch right after an unlock still counts as unlocked.
    {.description = "fetch fails after unlock", .phone = true, .fresh = kNotRead, .cookies = kNew,
     .logger = {CannotGet(584, "NEW")}, .page = "info"},
    {.description = "no data", .phone = true, .cookie = "OLD", .unlock = FakeAPI::SuccessWithoutData(),
     .cookies = {kSetEmpty, kClear}, .logger = {CannotGet(565, "OLD"), CannotGet(584, "")}, .page = "info"},
    {.description = "office after unlock", .fresh = Found({.name = "r.kdoc"}), .cookies = kNew, .page = OFFICE},
    Named("phone, office, no can_read", "d.kslides", OFFICE, true),
    Named("upper case", "r.KSHEET", "desktop"),
    Named("not at the end", "r.kdoc.t", "desktop"),
    Named("line feed in the name", "a\nr.kdoc", "desktop"),
    Named("tab in the name", "a\tr.kslides", OFFICE),
    {.description = "removed office", .cookie = "OLD", .fetch = Found({.name = "r.kdoc", .removed = true}),
     .unlock = Failed(1001), .cookies = kGone}}));

TEST_F(GetTest, MissingLinkIdSetsError114AndWritesTheInvalidLinkPage) {
  HandlerRun run = Run(true, "", "");
  EXPECT_EQ(PageOf(run), "invalid");
  EXPECT_EQ(run.response.GetErrorCode(), 114);
  EXPECT_FALSE(run.response.IsEnableOutput());
  EXPECT_TRUE(files_.Calls().empty() && auth_.Calls().empty());
}

// The visitor and the user who fetched (empty: no fetch).
const Visitor kAlice{SignIn::kAlice}, kBob{SignIn::kWebServer, "bob"}, kCarol{SignIn::kWebServer, "carol"};
struct PermanentRow {
  const char* description;
  bool phone = false;
  Visitor visitor = kAlice;
  Json::Value fetch = kRead;
  const char *page = "desktop", *fetchUser = "alice";
};

class Permanent : public GetTest, public ::testing::WithParamInterface<PermanentRow> {};

TEST_P(Permanent, Answers) {
  const PermanentRow& row = GetParam();
  files_.AlwaysReturn(row.fetch);
  SetVisitor(row.visitor);
  HandlerRun run = Run(row.phone, "", "L1");
  EXPECT_EQ(PageOf(run), row.page);
  EXPECT_TRUE(CookieLines(run).empty() && auth_.Calls().empty() && run.logger.empty());
  std::string fetched;
  for (const auto& call : files_.Calls()) fetched += call.user + " " + Text(call.params);
  EXPECT_EQ(fetched, *row.fetchUser ? row.fetchUser + std::string(R"( {"path":"link:L1"})") : "");
}

#define APP "redirect http://nas.example:5000/?launchApp=ZANT.QRT.Plyth.Application&launchParam=file_id%3DF1"
const Json::Value kInHome = Found({.displayPath = "/home/a.txt"});

INSTANTIATE_TEST_SUITE_P(Rows, Permanent, ::testing::ValuesIn(std::vector<PermanentRow>{
    {.description = "signed in, display path", .fetch = kInHome, .page = APP},
    {.description = "signed in, path without /", .fetch = Found({.displayPath = "home/a.txt"})},
    {.description = "anonymous, display path", .visitor = {}, .fetch = kInHome, .fetchUser = "anonymous"},
    {.description = "office: no office redirect here", .fetch = Found({.name = "r.kdoc"})},
    {.description = "phone, readable", .phone = true, .fetch = kInHome, .page = "info+download"},
    {.description = "phone, preview only", .phone = true, .fetch = Found({.canRead = false}), .page = "info"},
    {.description = "phone, signed in, 1002", .phone = true, .fetch = kNotRead, .page = "perm"},
    {.description = "phone, not previewable", .phone = true, .fetch = Found({.canPreview = false}), .page = "perm"},
    {.description = "phone, other failure", .phone = true, .fetch = Failed(1001), .page = "invalid"},
    {.description = "phone, removed", .phone = true, .fetch = kRemoved, .page = "invalid"},
    {.description = "web server user: token", .visitor = kBob, .page = "desktop+token", .fetchUser = "bob"},
    {.description = "disabled user: no fetch", .phone = true, .visitor = kCarol, .page = "invalid", .fetchUser = ""},
    {.description = "web server auth without USERNAME", .phone = true, .visitor = {SignIn::kWebServer},
     .fetch = kNotRead, .page = "anonymous", .fetchUser = "anonymous"},
    {.description = "USERNAME without web server auth", .visitor = {SignIn::kNone, "bob"}, .fetchUser = "anonymous"}}));

}  // namespace
