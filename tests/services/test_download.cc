// Downloads: media types, the attachment header, byte ranges, and the
// exact CGI answer of "download".
#include "download.h"
#include "services_api.h"
#include "services_fixture.h"

namespace services_test {
namespace {

using plyth_services::ByteRange;
using plyth_services::Item;
using plyth_services::RangeAnswer;
using plyth_services::Role;

struct RangeRow {
  const char* header;
  uint64_t size;
  RangeAnswer answer;
  uint64_t first;
  uint64_t last;
};
void PrintTo(const RangeRow& row, std::ostream* os) { *os << "\"" << row.header << "\""; }

class Ranges : public ::testing::TestWithParam<RangeRow> {};

TEST_P(Ranges, AreParsedAgainstTheSize) {
  const RangeRow& row = GetParam();
  ByteRange range;
  ASSERT_EQ(plyth_services::ParseRange(row.header, row.size, &range), row.answer) << row.header;
  if (row.answer != RangeAnswer::kPartial) return;
  EXPECT_EQ(range.first, row.first);
  EXPECT_EQ(range.last, row.last);
}

INSTANTIATE_TEST_SUITE_P(
    Headers, Ranges,
    ::testing::Values(RangeRow{"", 10, RangeAnswer::kWhole, 0, 0},
                      RangeRow{"bytes=0-4", 10, RangeAnswer::kPartial, 0, 4},
                      RangeRow{"bytes=5-", 10, RangeAnswer::kPartial, 5, 9},
                      RangeRow{"bytes=-3", 10, RangeAnswer::kPartial, 7, 9},
                      RangeRow{"bytes=-20", 10, RangeAnswer::kPartial, 0, 9},
                      RangeRow{"bytes=3-100", 10, RangeAnswer::kPartial, 3, 9},
                      RangeRow{"bytes=9-9", 10, RangeAnswer::kPartial, 9, 9},
                      RangeRow{" bytes=0-0 ", 10, RangeAnswer::kPartial, 0, 0},
                      RangeRow{"bytes=10-", 10, RangeAnswer::kUnsatisfiable, 0, 0},
                      RangeRow{"bytes=10-12", 10, RangeAnswer::kUnsatisfiable, 0, 0},
                      RangeRow{"bytes=-0", 10, RangeAnswer::kUnsatisfiable, 0, 0},
                      RangeRow{"bytes=99999999999999999999999-", 10, RangeAnswer::kUnsatisfiable, 0, 0},
                      RangeRow{"bytes=0-", 0, RangeAnswer::kUnsatisfiable, 0, 0},
                      RangeRow{"bytes=-1", 0, RangeAnswer::kUnsatisfiable, 0, 0},
                      RangeRow{"bytes=5-4", 10, RangeAnswer::kWhole, 0, 0},
                      RangeRow{"bytes=0-1,3-4", 10, RangeAnswer::kWhole, 0, 0},
                      RangeRow{"items=0-4", 10, RangeAnswer::kWhole, 0, 0},
                      RangeRow{"bytes=a-b", 10, RangeAnswer::kWhole, 0, 0},
                      RangeRow{"bytes=4", 10, RangeAnswer::kWhole, 0, 0},
                      RangeRow{"bytes=--4", 10, RangeAnswer::kWhole, 0, 0}));

struct NameRow {
  const char* name;
  const char* disposition;
  const char* type;
};
void PrintTo(const NameRow& row, std::ostream* os) { *os << "\"" << row.name << "\""; }

class Names : public ::testing::TestWithParam<NameRow> {};

TEST_P(Names, GiveDispositionAndType) {
  EXPECT_EQ(plyth_services::ContentDisposition(GetParam().name), GetParam().disposition);
  EXPECT_EQ(plyth_services::ContentTypeFor(GetParam().name), GetParam().type);
}

INSTANTIATE_TEST_SUITE_P(
    Files, Names,
    ::testing::Values(
        NameRow{"plan.txt", "attachment; filename=\"plan.txt\"; filename*=UTF-8''plan.txt", "text/plain"},
        NameRow{"a b\"c\\.PDF", "attachment; filename=\"a b_c_.PDF\"; filename*=UTF-8''a%20b%22c%5C.PDF",
                "application/pdf"},
        NameRow{"r\xC3\xA9sum\xC3\xA9.docx",
                "attachment; filename=\"r__sum__.docx\"; filename*=UTF-8''r%C3%A9sum%C3%A9.docx",
                "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
        NameRow{"100%;x", "attachment; filename=\"100%;x\"; filename*=UTF-8''100%25%3Bx",
                "application/octet-stream"},
        NameRow{"trailing.", "attachment; filename=\"trailing.\"; filename*=UTF-8''trailing.",
                "application/octet-stream"}));

class Download : public ServicesTest {
 protected:
  plyth_test::HandlerRun Get(const Item& item, const std::string& user, const std::string& range,
                             const std::string& token = "") {
    ZANT::APIRequest request;
    request.SetAPI("ZANT.BrindlexPlyth.Files", 1, "download");
    request.SetParam("path", "link:" + item.permanent_link);
    if (!token.empty()) request.SetParam("sharing_token", token);
    if (!range.empty()) request.SetServerVar("HTTP_RANGE", range);
    request.SetLogin(user, user == "anonymous" ? -1 : 1026,
                     user == "anonymous" ? ZANT::kAuthNone : ZANT::kAuthUser);
    return plyth_test::RunHandler(plyth_services::FilesDownloadFunc, request);
  }
};

const char kDigitsHeaders[] =
    "Content-Type: text/plain\r\n"
    "Content-Length: %s\r\n"
    "%s"
    "Accept-Ranges: bytes\r\n"
    "Content-Disposition: attachment; filename=\"digits.txt\"; filename*=UTF-8''digits.txt\r\n"
    "X-Content-Type-Options: nosniff\r\n"
    "\r\n";

std::string DigitsAnswer(const char* status, const char* length, const char* contentRange,
                         const char* body) {
  char head[1024];
  snprintf(head, sizeof(head), kDigitsHeaders, length, contentRange);
  return std::string("Status: ") + status + "\r\n" + head + body;
}

struct DownloadRow {
  const char* description;
  const char* range;
  std::string answer;
};
void PrintTo(const DownloadRow& row, std::ostream* os) { *os << "\"" << row.description << "\""; }

class DownloadAnswers : public Download, public ::testing::WithParamInterface<DownloadRow> {};

TEST_P(DownloadAnswers, AreExactBytes) {
  Item item = AddItem("alice", "/digits.txt", "0123456789");
  plyth_test::HandlerRun run = Get(item, "alice", GetParam().range);
  EXPECT_FALSE(run.response.IsEnableOutput());
  EXPECT_EQ(run.answer, GetParam().answer);
}

INSTANTIATE_TEST_SUITE_P(
    Ranges, DownloadAnswers,
    ::testing::Values(
        DownloadRow{"whole", "", DigitsAnswer("200 OK", "10", "", "0123456789")},
        DownloadRow{"ignored_list", "bytes=0-1,4-5", DigitsAnswer("200 OK", "10", "", "0123456789")},
        DownloadRow{"middle", "bytes=2-5",
                    DigitsAnswer("206 Partial Content", "4", "Content-Range: bytes 2-5/10\r\n", "2345")},
        DownloadRow{"suffix", "bytes=-3",
                    DigitsAnswer("206 Partial Content", "3", "Content-Range: bytes 7-9/10\r\n", "789")},
        DownloadRow{"open_end", "bytes=8-",
                    DigitsAnswer("206 Partial Content", "2", "Content-Range: bytes 8-9/10\r\n", "89")},
        DownloadRow{"unsatisfiable", "bytes=10-",
                    "Status: 416 Range Not Satisfiable\r\n"
                    "Content-Range: bytes */10\r\n"
                    "Content-Length: 0\r\n"
                    "Accept-Ranges: bytes\r\n"
                    "\r\n"}),
    [](const ::testing::TestParamInfo<DownloadRow>& info) { return std::string(info.param.description); });

TEST_F(Download, RangesAcrossTheCopyBufferAreExact) {
  std::string content;
  for (int i = 0; i < 200000; ++i) content += static_cast<char>('a' + i % 23);
  Item item = AddItem("alice", "/big.bin", content);
  plyth_test::HandlerRun run = Get(item, "alice", "bytes=65000-140000");
  std::vector<std::string> headers;
  std::string body;
  plyth_test::SplitHeaders(run.answer, headers, body);
  EXPECT_EQ(headers[0], "Status: 206 Partial Content");
  EXPECT_EQ(headers[1], "Content-Type: application/octet-stream");
  EXPECT_EQ(headers[2], "Content-Length: 75001");
  EXPECT_EQ(headers[3], "Content-Range: bytes 65000-140000/200000");
  EXPECT_EQ(body, content.substr(65000, 75001));
  run = Get(item, "alice", "");
  plyth_test::SplitHeaders(run.answer, headers, body);
  EXPECT_EQ(body, content);
}

TEST_F(Download, EmptyFilesDownloadEmpty) {
  Item item = AddItem("alice", "/empty.txt", "");
  plyth_test::HandlerRun run = Get(item, "alice", "");
  std::vector<std::string> headers;
  std::string body;
  plyth_test::SplitHeaders(run.answer, headers, body);
  EXPECT_EQ(headers[0], "Status: 200 OK");
  EXPECT_EQ(headers[2], "Content-Length: 0");
  EXPECT_EQ(body, "");
}

struct RefusalRow {
  const char* description;
  int code;
};
void PrintTo(const RefusalRow& row, std::ostream* os) { *os << "\"" << row.description << "\""; }

class DownloadRefusals : public Download, public ::testing::WithParamInterface<RefusalRow> {};

// A refusal writes nothing itself and leaves the framework's JSON answer on.
TEST_P(DownloadRefusals, AnswerThroughTheFramework) {
  const std::string what = GetParam().description;
  Item item = AddItem("alice", "/docs/plan.txt", "plan");
  plyth_test::HandlerRun run;
  if (what == "previewer_token") {
    std::string token = TokenFor(Share(item, "", 0, Role::kPreviewer));
    run = Get(item, "anonymous", "", token);
  } else if (what == "stranger") {
    run = Get(item, "anonymous", "");
  } else if (what == "folder") {
    Item folder;
    ASSERT_EQ(plyth_services::FindItemByPath(Db(), "alice", "/docs", &folder), 0);
    run = Get(folder, "alice", "");
  } else if (what == "removed") {
    ASSERT_EQ(plyth_services::SetRemoved(Db(), item, true), 0);
    run = Get(item, "alice", "");
  }
  EXPECT_EQ(run.stdoutBytes, "");
  EXPECT_TRUE(run.response.IsEnableOutput());
  EXPECT_EQ(run.response.GetErrorCode(), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(Refusals, DownloadRefusals,
                         ::testing::Values(RefusalRow{"previewer_token", 1002}, RefusalRow{"stranger", 1002},
                                           RefusalRow{"folder", 1004}, RefusalRow{"removed", 408}),
                         [](const ::testing::TestParamInfo<RefusalRow>& info) {
                           return std::string(info.param.description);
                         });

TEST_F(Download, ViewerTokensMayDownload) {
  Item item = AddItem("alice", "/digits.txt", "0123456789");
  std::string token = TokenFor(Share(item, "", 0, Role::kViewer));
  plyth_test::HandlerRun run = Get(item, "anonymous", "bytes=0-0", token);
  EXPECT_EQ(run.answer, DigitsAnswer("206 Partial Content", "1", "Content-Range: bytes 0-0/10\r\n", "0"));
}

}  // namespace
}  // namespace services_test
