// The link-service client against fake web APIs in the in-process runner:
// what it sends, as whom, what it makes of each result shape, and the
// system-log lines of a failure.
#include <stdlib.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "harness.h"
#include "plyth_utils.h"

namespace plyth_test {
void PrintTo(const SyslogLine& line, std::ostream* os) { *os << line.priority << " " << line.text; }
}  // namespace plyth_test

namespace {

using plyth_test::FakeAPI;
using plyth_test::FakeIdentity;
using plyth_test::SyslogCapture;
using plyth_test::SyslogLine;

const std::string kSource = "server/ui-web/src/plyth/common/plyth_utils";

Json::Value Parse(const std::string& text) {
  Json::Value value;
  Json::Reader().parse(text, value);
  return value;
}

SyslogLine Error(int line, const std::string& text) {
  return {3, kSource + ":" + std::to_string(line) + " " + text};
}

class LinkClient : public ::testing::Test {
 protected:
  FakeIdentity identity_{0, 0};  // root already: no switch lines in the log
  SyslogCapture log_;
  FakeAPI files_{"ZANT.BrindlexPlyth.Files", 1, "get"};
  FakeAPI auth_{"ZANT.BrindlexPlyth.AdvanceSharing.Public", 1, "auth"};
};

TEST_F(LinkClient, FileGetSendsLinkPathAndTokenAsTheUser) {
  files_.AlwaysReturn(FakeAPI::Success(Parse(R"({"name":"a.txt"})")));
  Json::Value file;
  ASSERT_EQ(PlythFileGet("alice", "AbC", "tok", file), 0);
  ASSERT_EQ(files_.Calls().size(), 1u);
  EXPECT_EQ(files_.Calls()[0].params, Parse(R"({"path":"link:AbC","sharing_token":"tok"})"));
  EXPECT_EQ(files_.Calls()[0].user, "alice");
  EXPECT_EQ(file, Parse(R"({"name":"a.txt"})"));
}

TEST_F(LinkClient, FileGetWithoutTokenSendsOnlyThePath) {
  files_.AlwaysReturn(FakeAPI::Success(Json::Value(Json::objectValue)));
  Json::Value file;
  PlythFileGet("anonymous", "AbC", "", file);
  ASSERT_EQ(files_.Calls().size(), 1u);
  EXPECT_EQ(files_.Calls()[0].params, Parse(R"({"path":"link:AbC"})"));
}

TEST_F(LinkClient, FileGetHoldsRootDuringTheCallOnly) {
  FakeIdentity user(1000, 100);
  std::vector<uid_t> inside;
  files_.Respond([&](const Json::Value&, const std::string&) {
    inside.push_back(user.Euid());
    inside.push_back(user.Egid());
    return FakeAPI::SuccessWithoutData();
  });
  Json::Value file;
  PlythFileGet("alice", "AbC", "", file);
  EXPECT_EQ(inside, (std::vector<uid_t>{0, 0}));
  EXPECT_EQ(user.Euid(), 1000u);
  EXPECT_EQ(user.Egid(), 100u);
  EXPECT_EQ(log_.Lines(), (std::vector<SyslogLine>{
                              {38, kSource + ":206 WARNING: setresgid(-1, 0, -1)"},
                              {38, kSource + ":206 WARNING: setresuid(-1, 0, -1)"},
                              {38, kSource + ":206 WARNING: setresuid(-1, 0, -1)"}}));
}

struct FileGetCase {
  const char* description;
  Json::Value result;
  int code;
  Json::Value file;  // the record afterwards ("old" before the call)
  std::vector<SyslogLine> lines;
};
void PrintTo(const FileGetCase& c, std::ostream* os) { *os << c.description; }

class FileGetResults : public LinkClient, public ::testing::WithParamInterface<FileGetCase> {};

TEST_P(FileGetResults, CodeRecordAndLog) {
  const FileGetCase& c = GetParam();
  files_.AlwaysReturn(c.result);
  Json::Value file("old");
  EXPECT_EQ(PlythFileGet("alice", "AbC", "tok", file), c.code);
  EXPECT_EQ(file, c.file);
  EXPECT_EQ(log_.Lines(), c.lines);
}

const char kSentFileGet[] = R"({"path":"link:AbC","sharing_token":"tok"})";

INSTANTIATE_TEST_SUITE_P(
    Table, FileGetResults,
    ::testing::Values(
        FileGetCase{"success with data", FakeAPI::Success(Parse(R"({"removed":false})")), 0,
                    Parse(R"({"removed":false})"), {}},
        FileGetCase{"success without data", FakeAPI::SuccessWithoutData(), 0, Json::Value("old"),
                    {}},
        FileGetCase{"failure with code", FakeAPI::Failure(1002), 1002, Json::Value("old"),
                    {Error(210, "permanent_link: AbC"), Error(211, kSentFileGet),
                     Error(212, R"({"error":{"code":1002},"success":false})")}},
        FileGetCase{"failure without error answers 0", FakeAPI::FailureWithoutError(), 0,
                    Json::Value("old"),
                    {Error(210, "permanent_link: AbC"), Error(211, kSentFileGet),
                     Error(212, R"({"success":false})")}}),
    [](const ::testing::TestParamInfo<FileGetCase>& info) { return std::to_string(info.index); });

TEST_F(LinkClient, FileGetDoesNotTouchContentType) {
  unsetenv("CONTENT_TYPE");
  files_.AlwaysReturn(FakeAPI::SuccessWithoutData());
  Json::Value file;
  PlythFileGet("alice", "AbC", "", file);
  EXPECT_EQ(getenv("CONTENT_TYPE"), nullptr);
}

TEST_F(LinkClient, SharingAuthSendsLinkAndEmptyPasswordAsAnonymous) {
  auth_.AlwaysReturn(FakeAPI::Success(Parse(R"({"sharing_token":"T1"})")));
  std::string token = "old";
  ASSERT_EQ(PlythSharingAuth("L1", "", token), 0);
  ASSERT_EQ(auth_.Calls().size(), 1u);
  EXPECT_EQ(auth_.Calls()[0].params, Parse(R"({"sharing_link":"L1","password":""})"));
  EXPECT_EQ(auth_.Calls()[0].user, "anonymous");
  EXPECT_EQ(token, "T1");
}

struct AuthCase {
  const char* description;
  Json::Value result;
  int code;
  std::string token;  // afterwards ("old" before the call)
  std::vector<SyslogLine> lines;
};
void PrintTo(const AuthCase& c, std::ostream* os) { *os << c.description; }

class SharingAuthResults : public LinkClient, public ::testing::WithParamInterface<AuthCase> {};

TEST_P(SharingAuthResults, CodeTokenAndLog) {
  const AuthCase& c = GetParam();
  auth_.AlwaysReturn(c.result);
  std::string token = "old";
  EXPECT_EQ(PlythSharingAuth("L1", "pw", token), c.code);
  EXPECT_EQ(token, c.token);
  EXPECT_EQ(log_.Lines(), c.lines);
}

const char kSentAuth[] = R"({"password":"pw","sharing_link":"L1"})";

INSTANTIATE_TEST_SUITE_P(
    Table, SharingAuthResults,
    ::testing::Values(
        AuthCase{"token", FakeAPI::Success(Parse(R"({"sharing_token":"T1"})")), 0, "T1", {}},
        AuthCase{"data without token empties it", FakeAPI::Success(Json::Value(Json::objectValue)),
                 0, "", {}},
        AuthCase{"success without data keeps it", FakeAPI::SuccessWithoutData(), 0, "old", {}},
        AuthCase{"password needed", FakeAPI::Failure(1037), 1037, "old",
                 {Error(234, kSentAuth), Error(235, R"({"error":{"code":1037},"success":false})")}},
        AuthCase{"failure without error answers 0", FakeAPI::FailureWithoutError(), 0, "old",
                 {Error(234, kSentAuth), Error(235, R"({"success":false})")}}),
    [](const ::testing::TestParamInfo<AuthCase>& info) { return std::to_string(info.index); });

TEST_F(LinkClient, WebAPIExecSetsContentTypeAndHandsBackTheWholeResult) {
  setenv("CONTENT_TYPE", "text/plain", 1);
  FakeAPI ddns("ZANT.Core.DDNS.Record", 1, "list");
  ddns.AlwaysReturn(FakeAPI::Failure(105));
  Json::Value result;
  Json::Value params(Json::objectValue);
  params["offset"] = 0;

  EXPECT_TRUE(PlythWebAPIExec(result, "ZANT.Core.DDNS.Record", 1, "list", params, "admin"));

  EXPECT_STREQ(getenv("CONTENT_TYPE"), "application/x-www-form-urlencoded; charset=UTF-8");
  EXPECT_EQ(result, FakeAPI::Failure(105));
  ASSERT_EQ(ddns.Calls().size(), 1u);
  EXPECT_EQ(ddns.Calls()[0].params, params);
  EXPECT_EQ(ddns.Calls()[0].user, "admin");
  EXPECT_TRUE(log_.Lines().empty()) << "its callers judge the result";
}

TEST_F(LinkClient, WebAPIExecSwitchesAtLine64) {
  FakeIdentity user(1000, 0);
  FakeAPI info("ZANT.BrindlexPlyth.Info", 1, "get");
  info.AlwaysReturn(FakeAPI::SuccessWithoutData());
  Json::Value result;
  PlythWebAPIExec(result, "ZANT.BrindlexPlyth.Info", 1, "get", Json::Value(Json::objectValue),
                  "admin");
  EXPECT_EQ(result, FakeAPI::SuccessWithoutData());
  EXPECT_EQ(log_.Lines(), (std::vector<SyslogLine>{
                              {38, kSource + ":64 WARNING: setresuid(-1, 0, -1)"},
                              {38, kSource + ":64 WARNING: setresuid(-1, 0, -1)"}}));
}

}  // namespace
