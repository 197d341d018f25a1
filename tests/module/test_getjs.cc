// Method "getjs": the seven script functions, the error code each link state
// gives, the token cookie line before the content type, and error 114.
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

const char kContentType[] = "Content-Type:application/javascript; charset=\"UTF-8\"";

Json::Value Record(bool canPreview, bool removed) {
  Json::Value file;
  file["file_id"] = "F1";
  file["name"] = "a.txt";
  file["capabilities"]["can_preview"] = canPreview;
  if (removed) file["removed"] = true;
  return file;
}

Json::Value Unlocked() {
  Json::Value data;
  data["sharing_token"] = "NEW";
  return FakeAPI::Success(data);
}

// What the named window function returns, as written in the script.
std::string Returned(const std::string& body, const std::string& function) {
  const std::string start = "window." + function + "=function(){return ";
  size_t from = body.find(start);
  if (from == std::string::npos) return "<missing>";
  from += start.size();
  return body.substr(from, body.find(";}", from) - from);
}

class GetJSTest : public ::testing::Test {
 protected:
  GetJSTest()
      : files_("ZANT.BrindlexPlyth.Files", 1, "get"),
        auth_("ZANT.BrindlexPlyth.AdvanceSharing.Public", 1, "auth") {
    root_.WriteFile("/var/packages/BrindlexPlyth/target/plyth/texts/enu/strings",
                    "[common]\nok = \"OK\"\n");
    root_.WriteFile("/var/packages/Tabulon/target/ui/texts/enu/strings",
                    "[office]\nsave = \"Save\"\n");
    unsetenv("USERNAME");
  }
  ~GetJSTest() override { unsetenv("USERNAME"); }

  static ZANT::APIRequest Request() {
    ZANT::APIRequest request;
    request.SetAPI("ZANT.BrindlexPlyth.Shard", 1, "getjs");
    return request;
  }

  plyth_test::ApplianceRoot root_;
  FakeAPI files_;
  FakeAPI auth_;
};

TEST_F(GetJSTest, WholeAnswerForAPreviewablePermanentLink) {
  files_.AlwaysReturn(FakeAPI::Success(Record(true, false)));
  ZANT::APIRequest request = Request();
  request.SetParam("permanent_link", "P1");
  HandlerRun run = plyth_test::RunHandler(GetJSFunc, request);
  EXPECT_EQ(
      "Content-Type:application/javascript; charset=\"UTF-8\"\r\n\r\n"
      "window.getPlythShareMode=function(){return 'public';}\r\n"
      "window.getPlythErrCode=function(){return 0;}\r\n"
      "window.getPlythLink=function(){return \"P1\";}\r\n"
      "window.getPlythSharingLink=function(){return \"\";}\r\n"
      "window.getPlythFile=function(){return "
      "{\"capabilities\":{\"can_preview\":true},\"file_id\":\"F1\",\"name\":\"a.txt\"};}\r\n"
      "window.getPlythTexts=function(){return {\"common\":{\"ok\":\"OK\"}};}\r\n"
      "window.getOfficeTexts=function(){return {\"office\":{\"save\":\"Save\"}};}",
      run.answer);
  EXPECT_TRUE(run.logger.empty());
}

TEST_F(GetJSTest, MissingTextsDirectoriesGiveEmptyObjects) {
  files_.AlwaysReturn(FakeAPI::Success(Record(true, false)));
  ZANT::APIRequest request = Request();
  request.SetUILanguage("ger");
  HandlerRun run = plyth_test::RunHandler(GetJSFunc, request);
  EXPECT_EQ("{}", Returned(run.stdoutBytes, "getPlythTexts"));
  EXPECT_EQ("{}", Returned(run.stdoutBytes, "getOfficeTexts"));
  EXPECT_EQ(";}", run.stdoutBytes.substr(run.stdoutBytes.size() - 2));
}

struct BadLinkCase {
  const char* description;
  Json::Value permanentLink;
};

void PrintTo(const BadLinkCase& c, std::ostream* os) { *os << c.description; }

class GetJSBadLinkTest : public GetJSTest, public ::testing::WithParamInterface<BadLinkCase> {};

TEST_P(GetJSBadLinkTest, FrameworkAnswers114) {
  files_.AlwaysReturn(FakeAPI::Success(Record(true, false)));
  auth_.AlwaysReturn(Unlocked());
  ZANT::APIRequest request = Request();
  request.SetParam("permanent_link", GetParam().permanentLink);
  request.SetParam("sharing_link", "S1");
  HandlerRun run = plyth_test::RunHandler(GetJSFunc, request);
  EXPECT_EQ("", run.stdoutBytes);
  EXPECT_EQ(114, run.response.GetErrorCode());
  EXPECT_EQ(
      "Content-Type: application/json; charset=\"UTF-8\"\r\n\r\n"
      "{\"error\":{\"code\":114},\"success\":false}",
      run.answer);
  EXPECT_TRUE(files_.Calls().empty());
  EXPECT_TRUE(auth_.Calls().empty());
}

INSTANTIATE_TEST_SUITE_P(Rows, GetJSBadLinkTest,
                         ::testing::Values(BadLinkCase{"number", Json::Value(5)},
                                           BadLinkCase{"object", Json::Value(Json::objectValue)},
                                           BadLinkCase{"null", Json::Value()}),
                         [](const ::testing::TestParamInfo<BadLinkCase>& info) {
                           return "Row" + std::to_string(info.index);
                         });

enum Visitor { kAnonymous, kSignedIn, kServerNamed };

struct GetJSCase {
  const char* description;
  const char* sharingLink;  // null: parameter absent
  const char* cookie;       // plyth-sharing-S1; null: none
  Visitor visitor;
  const char* serverUser;  // USERNAME; null: unset
  Json::Value unlock;
  Json::Value fetch;
  // Expected.
  std::string errCode;
  std::string link;
  bool hasFile;
  std::string cookieLine;  // empty: none
  std::string fetchCall;   // "user params"; empty: no fetch
};

void PrintTo(const GetJSCase& c, std::ostream* os) { *os << c.description; }

class GetJSCaseTest : public GetJSTest, public ::testing::WithParamInterface<GetJSCase> {};

TEST_P(GetJSCaseTest, Script) {
  const GetJSCase& c = GetParam();
  files_.AlwaysReturn(c.fetch);
  auth_.AlwaysReturn(c.unlock);
  ZANT::APIRequest request = Request();
  request.SetParam("permanent_link", "P1");
  if (c.sharingLink != nullptr) request.SetParam("sharing_link", c.sharingLink);
  if (c.cookie != nullptr) request.SetCookie("plyth-sharing-S1", c.cookie);
  if (c.visitor == kSignedIn) request.SetLogin("alice", 1026, ZANT::kAuthUser);
  if (c.visitor == kServerNamed) request.SetLogin("", -1, ZANT::kAuthWebServer);
  if (c.serverUser != nullptr) setenv("USERNAME", c.serverUser, 1);

  HandlerRun run = plyth_test::RunHandler(GetJSFunc, request);

  std::vector<std::string> headers;
  std::string body;
  plyth_test::SplitHeaders(run.answer, headers, body);
  std::vector<std::string> expectedHeaders;
  if (!c.cookieLine.empty()) expectedHeaders.push_back(c.cookieLine);
  expectedHeaders.push_back(kContentType);
  EXPECT_EQ(expectedHeaders, headers);
  EXPECT_EQ(run.answer, run.stdoutBytes);

  EXPECT_EQ(c.errCode, Returned(body, "getPlythErrCode"));
  EXPECT_EQ("\"" + c.link + "\"", Returned(body, "getPlythLink"));
  EXPECT_EQ("\"" + std::string(c.sharingLink ? c.sharingLink : "") + "\"",
            Returned(body, "getPlythSharingLink"));
  if (c.hasFile) {
    EXPECT_EQ(ZANT::JsonToString(c.fetch["data"]), Returned(body, "getPlythFile"));
  } else {
    EXPECT_EQ("", Returned(body, "getPlythFile"));
  }

  if (c.fetchCall.empty()) {
    EXPECT_TRUE(files_.Calls().empty());
  } else {
    ASSERT_EQ(1u, files_.Calls().size());
    EXPECT_EQ(c.fetchCall,
              files_.Calls()[0].user + " " + ZANT::JsonToString(files_.Calls()[0].params));
  }
  for (const plyth_test::FakeCall& call : auth_.Calls()) {
    EXPECT_EQ("anonymous {\"password\":\"\",\"sharing_link\":\"S1\"}",
              call.user + " " + ZANT::JsonToString(call.params));
  }
}

const char kAnonFetch[] = "anonymous {\"path\":\"link:P1\"}";
const char kNewFetch[] = "anonymous {\"path\":\"link:P1\",\"sharing_token\":\"NEW\"}";
const char kOldFetch[] = "anonymous {\"path\":\"link:P1\",\"sharing_token\":\"OLD\"}";
const char kSetNew[] = "Set-Cookie: plyth-sharing-S1=NEW; path=/";

const Json::Value kPreviewable = FakeAPI::Success(Record(true, false));
const Json::Value kNotPreviewable = FakeAPI::Success(Record(false, false));
const Json::Value kRemoved = FakeAPI::Success(Record(true, true));

INSTANTIATE_TEST_SUITE_P(
    Rows, GetJSCaseTest,
    ::testing::Values(
        GetJSCase{"anonymous permanent link", nullptr, nullptr, kAnonymous, nullptr, Unlocked(),
                  kPreviewable, "0", "P1", true, "", kAnonFetch},
        GetJSCase{"signed-in user fetches as self", nullptr, nullptr, kSignedIn, "bob",
                  Unlocked(), kPreviewable, "0", "P1", true, "",
                  "alice {\"path\":\"link:P1\"}"},
        GetJSCase{"-7 with USERNAME fetches as that user", nullptr, nullptr, kServerNamed, "bob",
                  Unlocked(), kPreviewable, "0", "P1", true, "", "bob {\"path\":\"link:P1\"}"},
        GetJSCase{"-7 without USERNAME is anonymous", nullptr, nullptr, kServerNamed, nullptr,
                  Unlocked(), kPreviewable, "0", "P1", true, "", kAnonFetch},
        GetJSCase{"USERNAME without -7 is anonymous", nullptr, nullptr, kAnonymous, "bob",
                  Unlocked(), kPreviewable, "0", "P1", true, "", kAnonFetch},
        GetJSCase{"1002 passed through", nullptr, nullptr, kAnonymous, nullptr, Unlocked(),
                  FakeAPI::Failure(1002), "1002", "P1", false, "", kAnonFetch},
        GetJSCase{"removed: code 0, no link, no record", nullptr, nullptr, kAnonymous, nullptr,
                  Unlocked(), kRemoved, "0", "", false, "", kAnonFetch},
        GetJSCase{"not previewable: code 0, link kept, no record", nullptr, nullptr, kAnonymous,
                  nullptr, Unlocked(), kNotPreviewable, "0", "P1", false, "", kAnonFetch},
        GetJSCase{"success without data: no record", nullptr, nullptr, kAnonymous, nullptr,
                  Unlocked(), FakeAPI::SuccessWithoutData(), "0", "P1", false, "", kAnonFetch},
        GetJSCase{"empty link record: no record", nullptr, nullptr, kAnonymous, nullptr,
                  Unlocked(), FakeAPI::Success(Json::Value(Json::objectValue)), "0", "P1", false,
                  "", kAnonFetch},
        GetJSCase{"sharing link unlocked: cookie before content type", "S1", nullptr, kAnonymous,
                  nullptr, Unlocked(), kPreviewable, "0", "P1", true, kSetNew, kNewFetch},
        GetJSCase{"sharing link with a cookie: no unlock, no cookie line", "S1", "OLD",
                  kSignedIn, nullptr, FakeAPI::Failure(1037), kPreviewable, "0", "P1", true, "",
                  kOldFetch},
        GetJSCase{"empty cookie counts as none", "S1", "", kAnonymous, nullptr, Unlocked(),
                  kPreviewable, "0", "P1", true, kSetNew, kNewFetch},
        GetJSCase{"stale cookie: fetch code, cookie kept", "S1", "OLD", kAnonymous, nullptr,
                  Unlocked(), FakeAPI::Failure(1002), "1002", "P1", false, "", kOldFetch},
        GetJSCase{"1037 passed through, no fetch", "S1", nullptr, kAnonymous, nullptr,
                  FakeAPI::Failure(1037), kPreviewable, "1037", "P1", false, "", ""},
        GetJSCase{"1038 passed through, no fetch", "S1", nullptr, kAnonymous, nullptr,
                  FakeAPI::Failure(1038), kPreviewable, "1038", "P1", false, "", ""},
        GetJSCase{"other unlock failure folded into 1036", "S1", nullptr, kAnonymous, nullptr,
                  FakeAPI::Failure(1002), kPreviewable, "1036", "P1", false, "", ""},
        GetJSCase{"unlock failure without error code counts as unlocked", "S1", nullptr,
                  kAnonymous, nullptr, FakeAPI::FailureWithoutError(), kPreviewable, "0", "P1",
                  true, "Set-Cookie: plyth-sharing-S1=; path=/", kAnonFetch},
        GetJSCase{"removed behind a sharing link", "S1", "OLD", kAnonymous, nullptr, Unlocked(),
                  kRemoved, "0", "", false, "", kOldFetch}),
    [](const ::testing::TestParamInfo<GetJSCase>& info) {
      return "Row" + std::to_string(info.index);
    });

TEST_F(GetJSTest, NeitherParameterFetchesAnEmptyLink) {
  files_.AlwaysReturn(FakeAPI::Failure(1003));
  ZANT::APIRequest request = Request();
  HandlerRun run = plyth_test::RunHandler(GetJSFunc, request);
  ASSERT_EQ(1u, files_.Calls().size());
  EXPECT_EQ("{\"path\":\"link:\"}", ZANT::JsonToString(files_.Calls()[0].params));
  EXPECT_EQ("1003", Returned(run.stdoutBytes, "getPlythErrCode"));
  EXPECT_EQ("\"\"", Returned(run.stdoutBytes, "getPlythLink"));
  EXPECT_TRUE(auth_.Calls().empty());
}

TEST_F(GetJSTest, LinksAreWrittenUnescaped) {
  files_.AlwaysReturn(FakeAPI::Success(Record(true, false)));
  auth_.AlwaysReturn(Unlocked());
  ZANT::APIRequest request = Request();
  request.SetParam("permanent_link", "P\"1");
  request.SetParam("sharing_link", "S\\1");
  request.SetCookie("plyth-sharing-S\\1", "OLD");
  HandlerRun run = plyth_test::RunHandler(GetJSFunc, request);
  EXPECT_NE(std::string::npos,
            run.stdoutBytes.find("window.getPlythLink=function(){return \"P\"1\";}\r\n"));
  EXPECT_NE(std::string::npos,
            run.stdoutBytes.find("window.getPlythSharingLink=function(){return \"S\\1\";}\r\n"));
}

}  // namespace
