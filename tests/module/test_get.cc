// Method "get": which answer each link state gets (page, mobile page or
// redirect), the token cookie lines and their place before the page's
// headers, and the sync logger's lines.
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "harness.h"
#include "shard_api.h"
#include "zant/json_util.h"

namespace {

using plyth_test::FakeAPI;
using plyth_test::HandlerRun;

const char kDesktopUA[] = "Mozilla/5.0 (X11; Linux x86_64) Chrome/120.0";
const char kPhoneUA[] = "Mozilla/5.0 (iPhone; CPU iPhone OS 16_0 like Mac OS X)";
const char kLevelFile[] = "/var/packages/BrindlexPlyth/target/etc/syncfolder.debug";

Json::Value Record(const std::string& name, bool canRead, bool canPreview,
                   const std::string& displayPath = "") {
  Json::Value file;
  file["name"] = name;
  file["type"] = "file";
  file["file_id"] = "F1";
  file["permanent_link"] = "L1";
  file["display_path"] = displayPath;
  file["capabilities"]["can_read"] = canRead;
  file["capabilities"]["can_preview"] = canPreview;
  return file;
}

Json::Value Readable(const std::string& name = "a.txt") {
  return FakeAPI::Success(Record(name, true, true));
}
Json::Value PreviewOnly(const std::string& name = "a.txt") {
  return FakeAPI::Success(Record(name, false, true));
}
Json::Value NotPreviewable() { return FakeAPI::Success(Record("a.txt", true, false)); }
Json::Value Removed() {
  Json::Value file = Record("a.txt", true, true);
  file["removed"] = true;
  return FakeAPI::Success(file);
}
Json::Value AtPath(const std::string& displayPath) {
  return FakeAPI::Success(Record("a.txt", true, true, displayPath));
}
Json::Value Unlocked() {
  Json::Value data;
  data["sharing_token"] = "NEW";
  return FakeAPI::Success(data);
}

// "(pid:tid)" as the logger lines of this process start.
std::string LogPrefix() {
  char prefix[32];
  snprintf(prefix, sizeof(prefix), "(%5d:%5d)", static_cast<int>(getpid()),
           static_cast<int>(syscall(SYS_gettid) % 100000));
  return prefix;
}

std::string CannotGetFile(int line, const std::string& token) {
  return LogPrefix() + " [ERROR] get(" + std::to_string(line) +
         "): cannot get file : link: L1, sharing_token: " + token + ".";
}

// The answer in a few words: "redirect <url>", "desktop" (with "+token"
// when the page script carries the sign-in token), or "mobile:<script>"
// (with "+download" for the download button).
std::string PageOf(const HandlerRun& run) {
  std::string location = run.response.GetHeader("Location");
  if (!location.empty()) return "redirect " + location;
  std::vector<std::string> headers;
  std::string body;
  plyth_test::SplitHeaders(run.answer, headers, body);
  if (body.rfind("DESKTOP", 0) == 0) {
    return body.find("&ZantToken=TOK") != std::string::npos ? "desktop+token" : "desktop";
  }
  if (body.rfind("MOBILE", 0) == 0) {
    size_t from = body.rfind("js/mobile/");  // the page's own script follows common.js
    if (from == std::string::npos) return "mobile:?";
    from += 10;
    std::string page = "mobile:" + body.substr(from, body.find(".js", from) - from);
    if (body.find("DownloadBtn") != std::string::npos) page += "+download";
    return page;
  }
  return "nothing";
}

// The "Set-Cookie" lines, which must all stand before any other header line.
std::vector<std::string> CookieLines(const HandlerRun& run) {
  std::vector<std::string> headers;
  std::string body;
  plyth_test::SplitHeaders(run.answer, headers, body);
  std::vector<std::string> cookies;
  bool otherSeen = false;
  for (const std::string& line : headers) {
    if (line.rfind("Set-Cookie: ", 0) == 0) {
      EXPECT_FALSE(otherSeen) << "cookie after another header: " << line;
      cookies.push_back(line);
    } else {
      otherSeen = true;
    }
  }
  return cookies;
}

class GetTest : public ::testing::Test {
 protected:
  GetTest()
      : files_("ZANT.BrindlexPlyth.Files", 1, "get"),
        auth_("ZANT.BrindlexPlyth.AdvanceSharing.Public", 1, "auth") {
    root_.WriteFile("/var/packages/BrindlexPlyth/target/webapi/plyth/shard/shard.html",
                    "DESKTOP {{NODEJSFILE}}");
    root_.WriteFile("/var/packages/BrindlexPlyth/target/webapi/plyth/shard/mobile.html",
                    "MOBILE {{JS_TAGS}}{{STATE}}");
    root_.WriteFile("/var/packages/BrindlexPlyth/target/plyth/texts/enu/strings",
                    "[action]\ndownload = \"DownloadBtn\"\n");
    root_.WriteFile("/usr/zant/etc/users",
                    "bob:1030:100:Bob:/home/bob::\ncarol:1031:100:Carol:/home/carol:disabled:\n");
    unsetenv("USERNAME");
  }
  ~GetTest() override { unsetenv("USERNAME"); }

  ZANT::APIRequest Request(const char* userAgent) {
    ZANT::APIRequest request;
    request.SetAPI("ZANT.BrindlexPlyth.Shard", 1, "get");
    request.SetServerVar("HTTP_USER_AGENT", userAgent);
    request.SetServerVar("HTTP_HOST", "nas.example:5000");
    request.SetServerVar("REQUEST_SCHEME", "http");
    request.SetServerVar("SERVER_PORT", "5000");
    request.SetSessionToken("TOK");
    return request;
  }

  ZANT::APIRequest SharingRequest(const char* userAgent) {
    ZANT::APIRequest request = Request(userAgent);
    request.SetParam("sharing_link", "S1");
    request.SetParam("link_id", "L1");
    request.SetServerVar("REQUEST_URI", "/d/s/S1");
    return request;
  }

  plyth_test::ApplianceRoot root_;
  FakeAPI files_;
  FakeAPI auth_;
};

// ---------------------------------------------------------------------------
// Sharing links.

struct SharingCase {
  const char* description;
  const char* userAgent;
  const char* cookie;       // value of plyth-sharing-S1; null: no cookie
  Json::Value cookieFetch;  // Files.get with any token but "NEW"
  Json::Value unlock;       // AdvanceSharing.Public.auth
  Json::Value freshFetch;   // Files.get with the token "NEW"
  std::vector<std::string> cookies;
  std::string page;
  std::vector<std::string> logLines;  // {ERR565}, {ERR584}, {ERR584-EMPTY} expand below
  size_t unlockCalls;
};

void PrintTo(const SharingCase& c, std::ostream* os) { *os << c.description; }

const char kSetNew[] = "Set-Cookie: plyth-sharing-S1=NEW; path=/";
const char kClear[] = "Set-Cookie: plyth-sharing-S1=; expires=Thu, 01 Jan 1970 00:00:00 GMT; path=/";
const char kOfficeRedirect[] = "redirect http://nas.example:5000/oo/r/L1?sharing_link=S1";

std::vector<std::string> ExpandLog(const std::vector<std::string>& lines) {
  std::vector<std::string> out;
  for (const std::string& line : lines) {
    if (line == "{ERR565}") out.push_back(CannotGetFile(565, "OLD"));
    else if (line == "{ERR584}") out.push_back(CannotGetFile(584, "NEW"));
    else if (line == "{ERR584-EMPTY}") out.push_back(CannotGetFile(584, ""));
    else out.push_back(line);
  }
  return out;
}

class GetSharingTest : public GetTest, public ::testing::WithParamInterface<SharingCase> {};

TEST_P(GetSharingTest, AnswersAndCookies) {
  const SharingCase& c = GetParam();
  files_.Respond([&c](const Json::Value& params, const std::string&) {
    return params.get("sharing_token", "").asString() == "NEW" ? c.freshFetch : c.cookieFetch;
  });
  auth_.AlwaysReturn(c.unlock);
  ZANT::APIRequest request = SharingRequest(c.userAgent);
  if (c.cookie != nullptr) request.SetCookie("plyth-sharing-S1", c.cookie);

  HandlerRun run = plyth_test::RunHandler(GetFunc, request);

  EXPECT_EQ(c.page, PageOf(run));
  EXPECT_EQ(c.cookies, CookieLines(run));
  EXPECT_EQ(ExpandLog(c.logLines), run.logger);
  EXPECT_EQ(c.unlockCalls, auth_.Calls().size());
  for (const plyth_test::FakeCall& call : files_.Calls()) EXPECT_EQ("anonymous", call.user);
  for (const plyth_test::FakeCall& call : auth_.Calls()) {
    EXPECT_EQ("{\"password\":\"\",\"sharing_link\":\"S1\"}", ZANT::JsonToString(call.params));
    EXPECT_EQ("anonymous", call.user);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Rows, GetSharingTest,
    ::testing::Values(
        SharingCase{"no cookie, unlocked, readable: fresh cookie and desktop page", kDesktopUA,
                    nullptr, FakeAPI::Failure(1002), Unlocked(), Readable(), {kSetNew},
                    "desktop", {}, 1},
        SharingCase{"valid cookie: no unlock, no cookie line", kDesktopUA, "OLD", Readable(),
                    Unlocked(), Readable(), {}, "desktop", {}, 0},
        SharingCase{"stale cookie, unlocked again: fresh cookie, no clearing", kDesktopUA, "OLD",
                    FakeAPI::Failure(1002), Unlocked(), Readable(), {kSetNew}, "desktop",
                    {"{ERR565}"}, 1},
        SharingCase{"stale cookie, password needed: cookie cleared", kDesktopUA, "OLD",
                    FakeAPI::Failure(1002), FakeAPI::Failure(1037), Readable(), {kClear},
                    "desktop", {"{ERR565}"}, 1},
        SharingCase{"1037 on a phone still gets the desktop page", kPhoneUA, nullptr,
                    FakeAPI::Failure(1002), FakeAPI::Failure(1037), Readable(), {}, "desktop",
                    {}, 1},
        SharingCase{"1038 on a phone: expired page", kPhoneUA, nullptr, FakeAPI::Failure(1002),
                    FakeAPI::Failure(1038), Readable(), {}, "mobile:expired", {}, 1},
        SharingCase{"1038 on desktop: desktop page", kDesktopUA, nullptr, FakeAPI::Failure(1002),
                    FakeAPI::Failure(1038), Readable(), {}, "desktop", {}, 1},
        SharingCase{"other unlock failure on a phone: invalid link", kPhoneUA, nullptr,
                    FakeAPI::Failure(1002), FakeAPI::Failure(1001), Readable(), {},
                    "mobile:invalid", {}, 1},
        SharingCase{"empty cookie that fetches, unlock fails otherwise: readable, cleared",
                    kPhoneUA, "", Readable(), FakeAPI::Failure(1001), Readable(), {kClear},
                    "mobile:info+download", {}, 1},
        SharingCase{"empty cookie that fetches, 1038: expired wins", kPhoneUA, "", Readable(),
                    FakeAPI::Failure(1038), Readable(), {kClear}, "mobile:expired", {}, 1},
        SharingCase{"removed item behind the cookie, unlock fails: invalid, cleared", kPhoneUA,
                    "OLD", Removed(), FakeAPI::Failure(1001), Readable(), {kClear},
                    "mobile:invalid", {}, 1},
        SharingCase{"removed item behind the cookie, unlocked again: fresh cookie", kPhoneUA,
                    "OLD", Removed(), Unlocked(), Readable(), {kSetNew}, "mobile:info+download",
                    {}, 1},
        SharingCase{"phone, readable item", kPhoneUA, nullptr, FakeAPI::Failure(1002), Unlocked(),
                    Readable(), {kSetNew}, "mobile:info+download", {}, 1},
        SharingCase{"phone, item without can_read: preview only", kPhoneUA, nullptr,
                    FakeAPI::Failure(1002), Unlocked(), PreviewOnly(), {kSetNew}, "mobile:info",
                    {}, 1},
        SharingCase{"phone, valid cookie to an item without can_read: preview only", kPhoneUA,
                    "OLD", PreviewOnly(), Unlocked(), Readable(), {}, "mobile:info", {}, 0},
        SharingCase{"fetch fails after unlock: counts as unlocked, no read right on a phone",
                    kPhoneUA, nullptr, FakeAPI::Failure(1002), Unlocked(),
                    FakeAPI::Failure(1002), {kSetNew}, "mobile:info", {"{ERR584}"}, 1},
        SharingCase{"fetch fails after unlock on desktop: desktop page", kDesktopUA, nullptr,
                    FakeAPI::Failure(1002), Unlocked(), FakeAPI::Failure(1002), {kSetNew},
                    "desktop", {"{ERR584}"}, 1},
        SharingCase{"unlock without data: empty token set, then cleared", kPhoneUA, "OLD",
                    FakeAPI::Failure(1002), FakeAPI::SuccessWithoutData(), Readable(),
                    {"Set-Cookie: plyth-sharing-S1=; path=/", kClear}, "mobile:info",
                    {"{ERR565}", "{ERR584-EMPTY}"}, 1},
        SharingCase{"office document after unlock: redirect after the cookie", kDesktopUA,
                    nullptr, FakeAPI::Failure(1002), Unlocked(), Readable("report.kdoc"),
                    {kSetNew}, kOfficeRedirect, {}, 1},
        SharingCase{"office document behind a valid cookie", kDesktopUA, "OLD",
                    Readable("deck.kslides"), Unlocked(), Readable(), {}, kOfficeRedirect, {}, 0},
        SharingCase{"spreadsheet", kDesktopUA, "OLD", Readable("t.ksheet"), Unlocked(),
                    Readable(), {}, kOfficeRedirect, {}, 0},
        SharingCase{"upper-case extension is no office document", kDesktopUA, "OLD",
                    Readable("report.KDOC"), Unlocked(), Readable(), {}, "desktop", {}, 0},
        SharingCase{"office extension not at the end", kDesktopUA, "OLD",
                    Readable("report.kdoc.txt"), Unlocked(), Readable(), {}, "desktop", {}, 0},
        SharingCase{"bare extension without a dot", kDesktopUA, "OLD", Readable("kdoc"),
                    Unlocked(), Readable(), {}, "desktop", {}, 0},
        SharingCase{"phone, readable office document", kPhoneUA, "OLD", Readable("report.kdoc"),
                    Unlocked(), Readable(), {}, kOfficeRedirect, {}, 0},
        SharingCase{"phone, office document without can_read still redirects", kPhoneUA, "OLD",
                    PreviewOnly("report.kdoc"), Unlocked(), Readable(), {}, kOfficeRedirect, {},
                    0},
        SharingCase{"removed office document is not redirected", kDesktopUA, "OLD",
                    FakeAPI::Success([] {
                      Json::Value f = Record("report.kdoc", true, true);
                      f["removed"] = true;
                      return f;
                    }()),
                    FakeAPI::Failure(1001), Readable(), {kClear}, "desktop", {}, 1}),
    [](const ::testing::TestParamInfo<SharingCase>& info) {
      return "Row" + std::to_string(info.index);
    });

TEST_F(GetTest, DesktopPageCarriesTheLinkIdentifiersWithoutToken) {
  files_.AlwaysReturn(Readable());
  auth_.AlwaysReturn(Unlocked());
  ZANT::APIRequest request = SharingRequest(kDesktopUA);
  HandlerRun run = plyth_test::RunHandler(GetFunc, request);
  std::vector<std::string> headers;
  std::string body;
  plyth_test::SplitHeaders(run.answer, headers, body);
  ASSERT_EQ(4u, headers.size());
  EXPECT_EQ(kSetNew, headers[0]);
  EXPECT_EQ("Content-Type:text/html; charset=\"UTF-8\"", headers[1]);
  EXPECT_NE(std::string::npos,
            body.find("method=getjs&permanent_link=%22L1%22&sharing_link=%22S1%22&v="))
      << body;
  EXPECT_EQ(std::string::npos, body.find("ZantToken"));
  ASSERT_EQ(1u, files_.Calls().size());
  EXPECT_EQ("link:L1", files_.Calls()[0].params["path"].asString());
  EXPECT_EQ("NEW", files_.Calls()[0].params["sharing_token"].asString());
}

TEST_F(GetTest, OfficeRedirectIsTheFrameworksFoundAnswerAfterTheCookie) {
  files_.AlwaysReturn(Readable("report.kdoc"));
  auth_.AlwaysReturn(Unlocked());
  ZANT::APIRequest request = SharingRequest(kDesktopUA);
  request.SetServerVar("REQUEST_URI", "/alias/d/s/S1");
  HandlerRun run = plyth_test::RunHandler(GetFunc, request);
  EXPECT_EQ(std::string(kSetNew) + "\r\nStatus: 302 Found\r\nLocation: "
                "http://nas.example:5000/alias/oo/r/L1?sharing_link=S1\r\n\r\n",
            run.answer);
}

TEST_F(GetTest, RemovedItemIsLoggedAtDebugLevel) {
  root_.WriteFile(kLevelFile, "default_component=debug\n");
  files_.AlwaysReturn(Removed());
  auth_.AlwaysReturn(FakeAPI::Failure(1001));
  ZANT::APIRequest request = SharingRequest(kDesktopUA);
  request.SetCookie("plyth-sharing-S1", "OLD");
  HandlerRun run = plyth_test::RunHandler(GetFunc, request);
  EXPECT_EQ(std::vector<std::string>{LogPrefix() +
                                     " [DEBUG] get(568): advance sharing file is removed : link: "
                                     "L1, sharing_token: OLD."},
            run.logger);
}

TEST_F(GetTest, ErrorLinesAreSilencedByTheLevelFile) {
  root_.WriteFile(kLevelFile, "default_component=crit\n");
  files_.AlwaysReturn(FakeAPI::Failure(1002));
  auth_.AlwaysReturn(FakeAPI::Failure(1001));
  ZANT::APIRequest request = SharingRequest(kDesktopUA);
  request.SetCookie("plyth-sharing-S1", "OLD");
  HandlerRun run = plyth_test::RunHandler(GetFunc, request);
  EXPECT_TRUE(run.logger.empty());
}

// ---------------------------------------------------------------------------
// A missing link identifier: error 114 and the invalid-link page all the same.

struct MissingLinkCase {
  const char* description;
  const char* userAgent;
  bool sharing;
  std::string page;
};

void PrintTo(const MissingLinkCase& c, std::ostream* os) { *os << c.description; }

class GetMissingLinkTest : public GetTest, public ::testing::WithParamInterface<MissingLinkCase> {};

TEST_P(GetMissingLinkTest, SetsErrorAndWritesThePage) {
  const MissingLinkCase& c = GetParam();
  files_.AlwaysReturn(Readable());
  auth_.AlwaysReturn(Unlocked());
  ZANT::APIRequest request = Request(c.userAgent);
  if (c.sharing) {
    request.SetParam("sharing_link", "S1");
    request.SetCookie("plyth-sharing-S1", "OLD");
  }
  HandlerRun run = plyth_test::RunHandler(GetFunc, request);
  EXPECT_EQ(114, run.response.GetErrorCode());
  EXPECT_FALSE(run.response.IsSuccess());
  EXPECT_FALSE(run.response.IsEnableOutput());
  EXPECT_EQ(c.page, PageOf(run));
  EXPECT_TRUE(CookieLines(run).empty());
  EXPECT_TRUE(files_.Calls().empty());
  EXPECT_TRUE(auth_.Calls().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, GetMissingLinkTest,
    ::testing::Values(MissingLinkCase{"sharing link, desktop", kDesktopUA, true, "desktop"},
                      MissingLinkCase{"sharing link, phone", kPhoneUA, true, "mobile:invalid"},
                      MissingLinkCase{"no parameters, phone", kPhoneUA, false, "mobile:invalid"},
                      MissingLinkCase{"no parameters, desktop", kDesktopUA, false, "desktop"}),
    [](const ::testing::TestParamInfo<MissingLinkCase>& info) {
      return "Row" + std::to_string(info.index);
    });

// ---------------------------------------------------------------------------
// Permanent links.

enum Visitor { kSignedIn, kAnonymousVisitor, kServerNamed, kServerNamedWithoutAuth };

struct PermanentCase {
  const char* description;
  const char* userAgent;
  Visitor visitor;
  const char* serverUser;  // USERNAME; null: unset
  Json::Value fetch;
  std::string page;
  std::string fetchUser;  // empty: no fetch at all
};

void PrintTo(const PermanentCase& c, std::ostream* os) { *os << c.description; }

class GetPermanentTest : public GetTest, public ::testing::WithParamInterface<PermanentCase> {};

TEST_P(GetPermanentTest, Answers) {
  const PermanentCase& c = GetParam();
  files_.AlwaysReturn(c.fetch);
  ZANT::APIRequest request = Request(c.userAgent);
  request.SetParam("link_id", "L1");
  request.SetServerVar("REQUEST_URI", "/d/f/L1");
  switch (c.visitor) {
    case kSignedIn:
      request.SetLogin("alice", 1026, ZANT::kAuthUser);
      break;
    case kAnonymousVisitor:
      break;
    case kServerNamed:
      request.SetLogin("", -1, ZANT::kAuthWebServer);
      break;
    case kServerNamedWithoutAuth:
      request.SetLogin("", -1, ZANT::kAuthNone);
      break;
  }
  if (c.serverUser != nullptr) setenv("USERNAME", c.serverUser, 1);

  HandlerRun run = plyth_test::RunHandler(GetFunc, request);

  EXPECT_EQ(c.page, PageOf(run));
  EXPECT_TRUE(CookieLines(run).empty());
  EXPECT_TRUE(auth_.Calls().empty());
  if (c.fetchUser.empty()) {
    EXPECT_TRUE(files_.Calls().empty());
  } else {
    ASSERT_EQ(1u, files_.Calls().size());
    EXPECT_EQ(c.fetchUser, files_.Calls()[0].user);
    EXPECT_EQ("{\"path\":\"link:L1\"}", ZANT::JsonToString(files_.Calls()[0].params));
  }
  EXPECT_TRUE(run.logger.empty());
}

const char kAppRedirect[] =
    "redirect http://nas.example:5000/?launchApp=ZANT.QRT.Plyth.Application&launchParam=file_id%3DF1";

INSTANTIATE_TEST_SUITE_P(
    Rows, GetPermanentTest,
    ::testing::Values(
        PermanentCase{"signed in, display path: into the web application", kDesktopUA, kSignedIn,
                      nullptr, AtPath("/home/a.txt"), kAppRedirect, "alice"},
        PermanentCase{"signed in, empty display path: desktop page", kDesktopUA, kSignedIn,
                      nullptr, AtPath(""), "desktop", "alice"},
        PermanentCase{"signed in, display path without leading /: desktop page", kDesktopUA,
                      kSignedIn, nullptr, AtPath("home/a.txt"), "desktop", "alice"},
        PermanentCase{"anonymous with a display path: desktop page", kDesktopUA,
                      kAnonymousVisitor, nullptr, AtPath("/home/a.txt"), "desktop", "anonymous"},
        PermanentCase{"signed in, office document: no office redirect here", kDesktopUA,
                      kSignedIn, nullptr, Readable("report.kdoc"), "desktop", "alice"},
        PermanentCase{"signed in, 1002: desktop page", kDesktopUA, kSignedIn, nullptr,
                      FakeAPI::Failure(1002), "desktop", "alice"},
        PermanentCase{"phone, readable", kPhoneUA, kSignedIn, nullptr, AtPath("/home/a.txt"),
                      "mobile:info+download", "alice"},
        PermanentCase{"phone, preview only", kPhoneUA, kSignedIn, nullptr, PreviewOnly(),
                      "mobile:info", "alice"},
        PermanentCase{"phone, anonymous, 1002: sign-in page", kPhoneUA, kAnonymousVisitor,
                      nullptr, FakeAPI::Failure(1002), "mobile:anonymous", "anonymous"},
        PermanentCase{"phone, signed in, 1002: no-permission page", kPhoneUA, kSignedIn, nullptr,
                      FakeAPI::Failure(1002), "mobile:perm", "alice"},
        PermanentCase{"phone, other failure: invalid link", kPhoneUA, kSignedIn, nullptr,
                      FakeAPI::Failure(1001), "mobile:invalid", "alice"},
        PermanentCase{"phone, removed: invalid link", kPhoneUA, kSignedIn, nullptr, Removed(),
                      "mobile:invalid", "alice"},
        PermanentCase{"phone, anonymous, not previewable: sign-in page", kPhoneUA,
                      kAnonymousVisitor, nullptr, NotPreviewable(), "mobile:anonymous",
                      "anonymous"},
        PermanentCase{"phone, signed in, not previewable: no-permission page", kPhoneUA,
                      kSignedIn, nullptr, NotPreviewable(), "mobile:perm", "alice"},
        PermanentCase{"server-named enabled user, phone", kPhoneUA, kServerNamed, "bob",
                      Readable(), "mobile:info+download", "bob"},
        PermanentCase{"server-named enabled user, desktop: page carries the token", kDesktopUA,
                      kServerNamed, "bob", AtPath(""), "desktop+token", "bob"},
        PermanentCase{"server-named enabled user with display path: redirect", kDesktopUA,
                      kServerNamed, "bob", AtPath("/home/a.txt"), kAppRedirect, "bob"},
        PermanentCase{"server-named disabled user: invalid link, no fetch", kPhoneUA,
                      kServerNamed, "carol", Readable(), "mobile:invalid", ""},
        PermanentCase{"server-named unknown user: invalid link, no fetch", kPhoneUA, kServerNamed,
                      "dave", Readable(), "mobile:invalid", ""},
        PermanentCase{"server-named disabled user on desktop: desktop page without token",
                      kDesktopUA, kServerNamed, "carol", Readable(), "desktop", ""},
        PermanentCase{"server-named empty name: sign-in check fails", kPhoneUA, kServerNamed, "",
                      Readable(), "mobile:invalid", ""},
        PermanentCase{"-7 without USERNAME: anonymous", kPhoneUA, kServerNamed, nullptr,
                      FakeAPI::Failure(1002), "mobile:anonymous", "anonymous"},
        PermanentCase{"USERNAME without -7: anonymous", kPhoneUA, kServerNamedWithoutAuth, "bob",
                      FakeAPI::Failure(1002), "mobile:anonymous", "anonymous"},
        PermanentCase{"signed-in user ignores USERNAME and gets no token", kDesktopUA, kSignedIn,
                      "bob", AtPath(""), "desktop", "alice"}),
    [](const ::testing::TestParamInfo<PermanentCase>& info) {
      return "Row" + std::to_string(info.index);
    });

}  // namespace
