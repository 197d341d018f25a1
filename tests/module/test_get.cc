// Method "get": which answer each link state gets (page, mobile page or
// redirect), the token cookie lines and their place before the page's
// headers, and the sync logger's lines.
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "module_testing.h"
#include "shard_api.h"

namespace {

const char kDesktopUA[] = "Mozilla/5.0 (X11; Linux x86_64) Chrome/120.0";
const char kPhoneUA[] = "Mozilla/5.0 (iPhone; CPU iPhone OS 16_0 like Mac OS X)";
const char kSetNew[] = "Set-Cookie: plyth-sharing-S1=NEW; path=/";
const char kClear[] =
    "Set-Cookie: plyth-sharing-S1=; expires=Thu, 01 Jan 1970 00:00:00 GMT; path=/";
const char kSetEmpty[] = "Set-Cookie: plyth-sharing-S1=; path=/";

// A logger line by its short name (see SharingRow), as this process writes it.
std::string LoggerLine(const std::string& name) {
  const int line = std::stoi(name);
  std::string what = line == 568 ? "advance sharing file is removed : link: L1, sharing_token: OLD."
                                 : "cannot get file : link: L1, sharing_token: ";
  if (line != 568) what += name == "565" ? "OLD." : name == "584" ? "NEW." : ".";
  char prefix[64];
  snprintf(prefix, sizeof(prefix), "(%5d:%5d) [%s] get(%d): ", static_cast<int>(getpid()),
           static_cast<int>(syscall(SYS_gettid) % 100000), line == 568 ? "DEBUG" : "ERROR", line);
  return prefix + what;
}

// The answer in a few words: "redirect <url>", "desktop" ("+token" when the
// page script carries the sign-in token), or the mobile page's script name
// ("+download" with the download button).
std::string PageOf(const HandlerRun& run) {
  std::string location = run.response.GetHeader("Location");
  if (!location.empty()) return "redirect " + location;
  const std::string body = BodyOf(run.answer);
  if (body.rfind("DESKTOP", 0) == 0) {
    return body.find("&ZantToken=TOK") != std::string::npos ? "desktop+token" : "desktop";
  }
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
  for (const std::string& line : headers) {
    if (line.rfind("Set-Cookie: ", 0) == 0) cookies.push_back(line);
  }
  EXPECT_TRUE(std::equal(cookies.begin(), cookies.end(), headers.begin())) << "cookies first";
  return cookies;
}

class GetTest : public LinkTest {
 protected:
  GetTest() {
    root_.WriteFile("/var/packages/BrindlexPlyth/target/webapi/plyth/shard/shard.html",
                    "DESKTOP {{NODEJSFILE}}");
    root_.WriteFile("/var/packages/BrindlexPlyth/target/webapi/plyth/shard/mobile.html",
                    "MOBILE {{JS_TAGS}}{{STATE}}");
  }

  HandlerRun Run(bool phone, const char* sharingLink, const char* linkId) {
    request_.SetAPI("ZANT.BrindlexPlyth.Shard", 1, "get");
    request_.SetServerVar("HTTP_USER_AGENT", phone ? kPhoneUA : kDesktopUA);
    request_.SetServerVar("HTTP_HOST", "nas.example:5000");
    request_.SetServerVar("REQUEST_SCHEME", "http");
    if (!request_.HasEnv("REQUEST_URI")) {
      request_.SetServerVar("REQUEST_URI", *sharingLink != '\0' ? "/d/s/S1" : "/d/f/L1");
    }
    if (*sharingLink != '\0') request_.SetParam("sharing_link", sharingLink);
    if (*linkId != '\0') request_.SetParam("link_id", linkId);
    return plyth_test::RunHandler(GetFunc, request_);
  }
};

// Results in short (see Result) of the fetch with the cookie's token, the
// unlock and the fetch with its token "NEW"; the cookie lines ("new",
// "clear", "empty"); the logger lines ("565" token OLD, "584" NEW, "584-" empty,
// "568" a removed item at the debug level).
struct SharingRow {
  const char* description;
  bool phone;
  const char *cookie /* null: none */, *cookieFetch, *unlock, *freshFetch, *cookies, *page, *log;
  size_t unlockCalls;
};

class Sharing : public GetTest, public ::testing::WithParamInterface<SharingRow> {};

TEST_P(Sharing, AnswersAndCookies) {
  const SharingRow& row = GetParam();
  files_.Respond([&row](const Json::Value& params, const std::string&) {
    return Result(params.get("sharing_token", "") == "NEW" ? row.freshFetch : row.cookieFetch);
  });
  auth_.AlwaysReturn(Result(row.unlock));
  if (row.cookie != nullptr) request_.SetCookie("plyth-sharing-S1", row.cookie);
  if (std::string(row.log) == "568") {
    root_.WriteFile("/var/packages/BrindlexPlyth/target/etc/syncfolder.debug",
                    "default_component=debug\n");
  }
  HandlerRun run = Run(row.phone, "S1", "L1");
  EXPECT_EQ(PageOf(run), row.page);
  Strings cookies, log;
  for (const std::string& c : Tokens(row.cookies)) {
    cookies.push_back(c == "new" ? kSetNew : c == "clear" ? kClear : kSetEmpty);
  }
  EXPECT_EQ(CookieLines(run), cookies);
  for (const std::string& name : Tokens(row.log)) log.push_back(LoggerLine(name));
  EXPECT_EQ(run.logger, log);
  EXPECT_EQ(auth_.Calls().size(), row.unlockCalls);
  for (const auto& call : files_.Calls()) EXPECT_EQ(call.user, "anonymous");
  for (const auto& call : auth_.Calls()) {
    EXPECT_EQ(call.user + Text(call.params), R"(anonymous{"password":"","sharing_link":"S1"})");
  }
}

const bool D = false, P = true;
using S = SharingRow;
#define OFFICE "redirect http://nas.example:5000/oo/r/L1?sharing_link=S1"

INSTANTIATE_TEST_SUITE_P(Rows, Sharing, ::testing::Values(
    S{"no cookie, unlocked", D, 0, "1002", "token", "read", "new", "desktop", "", 1},
    S{"valid cookie", D, "OLD", "read", "token", "read", "", "desktop", "", 0},
    S{"stale cookie, unlocked", D, "OLD", "1002", "token", "read", "new", "desktop", "565", 1},
    S{"stale cookie, 1037", D, "OLD", "1002", "1037", "read", "clear", "desktop", "565", 1},
    S{"1037 on a phone: desktop page", P, 0, "1002", "1037", "read", "", "desktop", "", 1},
    S{"1038 on a phone", P, 0, "1002", "1038", "read", "", "expired", "", 1},
    S{"other failure on a phone", P, 0, "1002", "1001", "read", "", "invalid", "", 1},
    S{"empty cookie that fetches", P, "", "read", "1001", "read", "clear", "info+download", "", 1},
    S{"empty cookie that fetches, 1038", P, "", "read", "1038", "read", "clear", "expired", "", 1},
    S{"removed, unlock fails", P, "OLD", "removed", "1001", "read", "clear", "invalid", "", 1},
    S{"removed, at debug level", D, "OLD", "removed", "1001", "", "clear", "desktop", "568", 1},
    S{"removed, unlocked", P, "OLD", "removed", "token", "read", "new", "info+download", "", 1},
    S{"phone, no can_read", P, 0, "1002", "token", "preview", "new", "info", "", 1},
    // A failed fetch right after an unlock still counts as unlocked.
    S{"fetch fails after unlock", P, 0, "1002", "token", "1002", "new", "info", "584", 1},
    S{"no data", P, "OLD", "1002", "nodata", "read", "empty clear", "info", "565 584-", 1},
    S{"office after unlock", D, 0, "1002", "token", "read:r.kdoc", "new", OFFICE, "", 1},
    S{"phone, office, no can_read", P, "OLD", "preview:d.kslides", "", "", "", OFFICE, "", 0},
    S{"upper case", D, "OLD", "read:r.KSHEET", "", "", "", "desktop", "", 0},
    S{"not at the end", D, "OLD", "read:r.kdoc.t", "", "", "", "desktop", "", 0},
    S{"line feed in the name", D, "OLD", "read:a\nr.kdoc", "", "", "", "desktop", "", 0},
    S{"carriage return in the name", D, "OLD", "read:a\rr.ksheet", "", "", "", "desktop", "", 0},
    S{"tab in the name", D, "OLD", "read:a\tr.kslides", "", "", "", OFFICE, "", 0},
    S{"removed office", D, "OLD", "removed:r.kdoc", "1001", "", "clear", "desktop", "", 1}));

TEST_F(GetTest, CookieStandsBeforeThePageOrTheRedirect) {
  files_.AlwaysReturn(Result("read"));
  auth_.AlwaysReturn(Result("token"));
  HandlerRun run = Run(false, "S1", "L1");
  Strings headers;
  std::string body;
  plyth_test::SplitHeaders(run.answer, headers, body);
  ASSERT_EQ(headers.size(), 4u);
  EXPECT_EQ(headers[0], kSetNew);
  EXPECT_EQ(headers[1], "Content-Type:text/html; charset=\"UTF-8\"");
  const std::string page = "DESKTOP <script type=\"text/javascript\" src=\"webapi/entry.cgi?api="
      "ZANT.BrindlexPlyth.Shard&version=1&method=getjs&permanent_link=%22L1%22"
      "&sharing_link=%22S1%22&v=";
  EXPECT_EQ(body.substr(0, page.size()), page);
  EXPECT_EQ(Text(files_.Calls().at(0).params), R"({"path":"link:L1","sharing_token":"NEW"})");

  files_.AlwaysReturn(Result("read:report.kdoc"));
  request_.SetServerVar("REQUEST_URI", "/alias/d/s/S1");
  run = Run(false, "S1", "L1");
  EXPECT_EQ(run.answer, std::string(kSetNew) + "\r\nStatus: 302 Found\r\nLocation: "
                            "http://nas.example:5000/alias/oo/r/L1?sharing_link=S1\r\n\r\n");
}

TEST_F(GetTest, MissingLinkIdSetsError114AndWritesTheInvalidLinkPage) {
  request_.SetCookie("plyth-sharing-S1", "OLD");
  HandlerRun run = Run(false, "S1", "");
  EXPECT_EQ(PageOf(run), "desktop");
  EXPECT_TRUE(CookieLines(run).empty());
  request_ = ZANT::APIRequest();
  run = Run(true, "", "");
  EXPECT_EQ(PageOf(run), "invalid");
  EXPECT_EQ(run.response.GetErrorCode(), 114);
  EXPECT_FALSE(run.response.IsEnableOutput());
  EXPECT_TRUE(files_.Calls().empty() && auth_.Calls().empty());
}

// The visitor as LinkTest::SetVisitor takes it; the user who fetched (empty: no fetch).
struct PermanentRow {
  const char* description;
  bool phone;
  const char *visitor, *fetch, *page, *fetchUser;
};

class Permanent : public GetTest, public ::testing::WithParamInterface<PermanentRow> {};

TEST_P(Permanent, Answers) {
  const PermanentRow& row = GetParam();
  files_.AlwaysReturn(Result(row.fetch));
  SetVisitor(row.visitor);
  HandlerRun run = Run(row.phone, "", "L1");
  EXPECT_EQ(PageOf(run), row.page);
  EXPECT_TRUE(CookieLines(run).empty());
  EXPECT_TRUE(auth_.Calls().empty());
  EXPECT_TRUE(run.logger.empty());
  std::string fetched;
  for (const auto& call : files_.Calls()) fetched += call.user + " " + Text(call.params);
  EXPECT_EQ(fetched, *row.fetchUser ? row.fetchUser + std::string(R"( {"path":"link:L1"})") : "");
}

#define APP \
  "redirect http://nas.example:5000/?launchApp=ZANT.QRT.Plyth.Application&launchParam=file_id%3DF1"
using R = PermanentRow;

INSTANTIATE_TEST_SUITE_P(Rows, Permanent, ::testing::Values(
    R{"signed in, display path", D, "alice", "path:/home/a.txt", APP, "alice"},
    R{"signed in, no display path", D, "alice", "read", "desktop", "alice"},
    R{"signed in, path without /", D, "alice", "path:home/a.txt", "desktop", "alice"},
    R{"anonymous, display path", D, "", "path:/home/a.txt", "desktop", "anonymous"},
    R{"office: no office redirect here", D, "alice", "read:r.kdoc", "desktop", "alice"},
    R{"phone, readable", P, "alice", "path:/home/a.txt", "info+download", "alice"},
    R{"phone, preview only", P, "alice", "preview", "info", "alice"},
    R{"phone, anonymous, 1002", P, "", "1002", "anonymous", "anonymous"},
    R{"phone, signed in, 1002", P, "alice", "1002", "perm", "alice"},
    R{"phone, signed in, not previewable", P, "alice", "noprev", "perm", "alice"},
    R{"phone, other failure", P, "alice", "1001", "invalid", "alice"},
    R{"phone, removed", P, "alice", "removed", "invalid", "alice"},
    R{"-7, enabled user, phone", P, "-7 bob", "read", "info+download", "bob"},
    R{"-7, enabled user: token", D, "-7 bob", "read", "desktop+token", "bob"},
    R{"-2, disabled user: no fetch", P, "-7 carol", "read", "invalid", ""},
    R{"-2, disabled user, desktop", D, "-7 carol", "read", "desktop", ""},
    R{"-1, empty name", P, "-7 ''", "read", "invalid", ""},
    R{"web server auth without USERNAME", P, "-7", "1002", "anonymous", "anonymous"},
    R{"USERNAME without web server auth", P, "none bob", "1002", "anonymous", "anonymous"},
    R{"signed in ignores USERNAME", D, "alice bob", "read", "desktop", "alice"}));

}  // namespace
