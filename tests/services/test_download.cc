// Downloads: media types, the attachment header, byte ranges, and the
// exact CGI answer of "download".
#include "download.h"
#include "services_api.h"
#include "services_fixture.h"

namespace services_test {
namespace {

using plyth_services::RangeAnswer;

// Range rows: header, content size, answer ("200", "206 first-last" or "416").
class Ranges : public ::testing::TestWithParam<std::tuple<const char*, uint64_t, const char*>> {};

TEST_P(Ranges, AreParsedAgainstTheSize) {
  plyth_services::ByteRange range;
  const RangeAnswer answer = plyth_services::ParseRange(std::get<0>(GetParam()), std::get<1>(GetParam()), &range);
  EXPECT_EQ(answer == RangeAnswer::kWhole     ? "200"
            : answer == RangeAnswer::kPartial ? "206 " + std::to_string(range.first) + "-" + std::to_string(range.last)
                                              : "416",
            std::get<2>(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(
    Headers, Ranges,
    ::testing::Values(std::make_tuple("", 10, "200"), std::make_tuple("bytes=0-4", 10, "206 0-4"),
                      std::make_tuple("bytes=5-", 10, "206 5-9"), std::make_tuple("bytes=-3", 10, "206 7-9"),
                      std::make_tuple("bytes=-20", 10, "206 0-9"), std::make_tuple("bytes=3-100", 10, "206 3-9"),
                      std::make_tuple(" bytes=9-9 ", 10, "206 9-9"), std::make_tuple("bytes=10-", 10, "416"),
                      std::make_tuple("bytes=-0", 10, "416"), std::make_tuple("bytes=0-", 0, "416"),
                      std::make_tuple("bytes=99999999999999999999999-", 10, "416"),
                      std::make_tuple("bytes=5-4", 10, "200"), std::make_tuple("bytes=0-1,3-4", 10, "200"),
                      std::make_tuple("items=0-4", 10, "200"), std::make_tuple("bytes=a-b", 10, "200"),
                      std::make_tuple("bytes=--4", 10, "200")));

TEST(Names, GiveDispositionAndType) {
  const char* rows[][3] = {
      {"plan.txt", "attachment; filename=\"plan.txt\"; filename*=UTF-8''plan.txt", "text/plain"},
      {"a b\"c\\.PDF", "attachment; filename=\"a b_c_.PDF\"; filename*=UTF-8''a%20b%22c%5C.PDF", "application/pdf"},
      {"r\xC3\xA9sum\xC3\xA9.docx", "attachment; filename=\"r__sum__.docx\"; filename*=UTF-8''r%C3%A9sum%C3%A9.docx",
       "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
      {"100%;x.", "attachment; filename=\"100%;x.\"; filename*=UTF-8''100%25%3Bx.", "application/octet-stream"}};
  for (const auto& row : rows) {
    EXPECT_EQ(plyth_services::ContentDisposition(row[0]), row[1]);
    EXPECT_EQ(plyth_services::ContentTypeFor(row[0]), row[2]);
  }
}

// Control bytes of a name never reach the header raw: a NUL once passed
// through the encoded form.
TEST(Names, EncodeControlBytes) {
  struct Row {
    std::string name;
    std::string disposition;
  };
  const Row rows[] = {
      {.name = std::string("a\0b", 3), .disposition = "attachment; filename=\"a_b\"; filename*=UTF-8''a%00b"},
      {.name = "a\r\nb", .disposition = "attachment; filename=\"a__b\"; filename*=UTF-8''a%0D%0Ab"},
      {.name = "\x7f\t", .disposition = "attachment; filename=\"__\"; filename*=UTF-8''%7F%09"},
  };
  for (const Row& row : rows) EXPECT_EQ(plyth_services::ContentDisposition(row.name), row.disposition);
}

class Download : public ServicesTest {
 protected:
  plyth_test::HandlerRun Get(const Item& item, const std::string& user, const std::string& range,
                             const std::string& token = "") {
    ZANT::APIRequest request;
    request.SetAPI("ZANT.BrindlexPlyth.Files", 1, "download");
    request.SetParam("path", "link:" + item.permanent_link);
    if (!token.empty()) request.SetParam("sharing_token", token);
    if (!range.empty()) request.SetServerVar("HTTP_RANGE", range);
    const bool anonymous = user == "anonymous";
    request.SetLogin(user, anonymous ? -1 : 1026, anonymous ? ZANT::kAuthNone : ZANT::kAuthUser);
    return plyth_test::RunHandler(plyth_services::FilesDownloadFunc, request);
  }
};

std::string Digits(const char* status, const char* length, const char* contentRange, const char* body) {
  return std::string("Status: ") + status + "\r\nContent-Type: text/plain\r\nContent-Length: " + length + "\r\n" +
         contentRange + "Accept-Ranges: bytes\r\n"
         "Content-Disposition: attachment; filename=\"digits.txt\"; filename*=UTF-8''digits.txt\r\n"
         "X-Content-Type-Options: nosniff\r\n\r\n" + body;
}

class DownloadAnswers : public Download, public ::testing::WithParamInterface<std::pair<const char*, std::string>> {};

TEST_P(DownloadAnswers, AreExactBytes) {
  const plyth_test::HandlerRun run = Get(AddItem("alice", "/digits.txt", "0123456789"), "alice", GetParam().first);
  EXPECT_FALSE(run.response.IsEnableOutput());
  EXPECT_EQ(run.answer, GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(
    Ranges, DownloadAnswers,
    ::testing::Values(
        std::make_pair("", Digits("200 OK", "10", "", "0123456789")),
        std::make_pair("bytes=0-1,4-5", Digits("200 OK", "10", "", "0123456789")),
        std::make_pair("bytes=2-5", Digits("206 Partial Content", "4", "Content-Range: bytes 2-5/10\r\n", "2345")),
        std::make_pair("bytes=-3", Digits("206 Partial Content", "3", "Content-Range: bytes 7-9/10\r\n", "789")),
        std::make_pair("bytes=8-", Digits("206 Partial Content", "2", "Content-Range: bytes 8-9/10\r\n", "89")),
        std::make_pair("bytes=10-", std::string("Status: 416 Range Not Satisfiable\r\nContent-Range: bytes */10\r\n"
                                                "Content-Length: 0\r\nAccept-Ranges: bytes\r\n\r\n"))));

TEST_F(Download, RangesAcrossTheCopyBufferAreExact) {
  std::string content;
  for (int i = 0; i < 200000; ++i) content += static_cast<char>('a' + i % 23);
  const plyth_test::HandlerRun run = Get(AddItem("alice", "/big.bin", content), "alice", "bytes=65000-140000");
  std::vector<std::string> headers;
  std::string body;
  plyth_test::SplitHeaders(run.answer, headers, body);
  ASSERT_GE(headers.size(), 4u);
  EXPECT_EQ(headers[0] + "|" + headers[1] + "|" + headers[2] + "|" + headers[3],
            "Status: 206 Partial Content|Content-Type: application/octet-stream|Content-Length: 75001|"
            "Content-Range: bytes 65000-140000/200000");
  EXPECT_TRUE(body == content.substr(65000, 75001));
}

// A refusal writes nothing itself and leaves the framework's JSON answer on.
TEST_F(Download, OnlyReadersOfAFileThatIsThereDownload) {
  const Item item = AddItem("alice", "/docs/digits.txt", "0123456789");
  EXPECT_EQ(Get(item, "anonymous", "bytes=0-0", TokenFor(Share(item, "", 0, Role::kViewer))).answer,
            Digits("206 Partial Content", "1", "Content-Range: bytes 0-0/10\r\n", "0"));
  std::vector<plyth_test::HandlerRun> refused;
  refused.push_back(Get(item, "anonymous", "", TokenFor(Share(item, "", 0, Role::kPreviewer))));
  refused.push_back(Get(item, "anonymous", ""));
  refused.push_back(Get(Find("alice", "/docs"), "alice", ""));
  ASSERT_EQ(plyth_services::SetRemoved(Db(), item, true), 0);
  refused.push_back(Get(item, "alice", ""));
  std::string codes;
  for (const plyth_test::HandlerRun& run : refused) {
    EXPECT_EQ(run.stdoutBytes, "");
    EXPECT_TRUE(run.response.IsEnableOutput());
    codes += std::to_string(run.response.GetErrorCode()) + " ";
  }
  EXPECT_EQ(codes, "1002 1002 1004 408 ");  // previewer token, stranger, folder, removed
}

}  // namespace
}  // namespace services_test
