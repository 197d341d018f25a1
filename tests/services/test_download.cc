// Downloads: media types, the attachment header, byte ranges, the exact CGI
// answer of "download", and refusals to a browser that navigated to one.
#include "download.h"
#include "services_api.h"
#include "services_fixture.h"

namespace services_test {
namespace {

using plyth_services::RangeAnswer;

TEST(Ranges, AreParsedAgainstTheSize) {
  // `first` and `last` of a partial answer.
  struct Row { const char* header; uint64_t size; RangeAnswer answer; uint64_t first = 0, last = 0; } rows[] = {
      {.header = "", .size = 10, .answer = RangeAnswer::kWhole},
      {.header = "bytes=5-", .size = 10, .answer = RangeAnswer::kPartial, .first = 5, .last = 9},
      {.header = "bytes=-3", .size = 10, .answer = RangeAnswer::kPartial, .first = 7, .last = 9},
      {.header = "bytes=-20", .size = 10, .answer = RangeAnswer::kPartial, .first = 0, .last = 9},
      {.header = "bytes=3-100", .size = 10, .answer = RangeAnswer::kPartial, .first = 3, .last = 9},
      {.header = " bytes=9-9 ", .size = 10, .answer = RangeAnswer::kPartial, .first = 9, .last = 9},
      {.header = "bytes=10-", .size = 10, .answer = RangeAnswer::kUnsatisfiable},
      {.header = "bytes=-0", .size = 10, .answer = RangeAnswer::kUnsatisfiable},
      {.header = "bytes=-5", .size = 0, .answer = RangeAnswer::kUnsatisfiable},
      {.header = "bytes=99999999999999999999999-", .size = 10, .answer = RangeAnswer::kUnsatisfiable},
      // Ignored: the whole content.
      {.header = "bytes=5-4", .size = 10, .answer = RangeAnswer::kWhole},
      {.header = "bytes=0-1,3-4", .size = 10, .answer = RangeAnswer::kWhole},
      {.header = "items=0-4", .size = 10, .answer = RangeAnswer::kWhole},
      {.header = "bytes=a-b", .size = 10, .answer = RangeAnswer::kWhole}};
  for (const Row& row : rows) {
    plyth_services::ByteRange range;
    EXPECT_EQ(plyth_services::ParseRange(row.header, row.size, &range), row.answer) << row.header;
    if (row.answer != RangeAnswer::kPartial) continue;
    EXPECT_EQ(std::make_pair(range.first, range.last), std::make_pair(row.first, row.last)) << row.header;
  }
}

// Control bytes of a name never reach the header raw: a NUL once passed
// through the encoded form.
TEST(Names, GiveDispositionAndType) {
  struct Row { std::string name; const char* disposition; } rows[] = {
      {.name = "a b\"c\\.PDF", .disposition = "attachment; filename=\"a b_c_.PDF\"; filename*=UTF-8''a%20b%22c%5C.PDF"},
      {.name = "r\xC3\xA9sum\xC3\xA9.docx",
       .disposition = "attachment; filename=\"r__sum__.docx\"; filename*=UTF-8''r%C3%A9sum%C3%A9.docx"},
      {.name = "100%;x.", .disposition = "attachment; filename=\"100%;x.\"; filename*=UTF-8''100%25%3Bx."},
      {.name = std::string("\0\x7f\t", 3), .disposition = "attachment; filename=\"___\"; filename*=UTF-8''%00%7F%09"}};
  for (const Row& row : rows) EXPECT_EQ(plyth_services::ContentDisposition(row.name), row.disposition);
  EXPECT_EQ(plyth_services::ContentTypeFor("a.PDF"), "application/pdf") << "the extension in any case";
}

class Download : public ServicesTest {
 protected:
  plyth_test::HandlerRun Get(const Item& item, const std::string& user, const std::string& range,
                             const std::string& token = "") {
    const Json::Value params = Params({{"path", "link:" + item.permanent_link},
                                       {"sharing_token", token.empty() ? Json::Value() : Json::Value(token)}});
    return RunFiles(plyth_services::FilesDownloadFunc, "download", params, user, {{"HTTP_RANGE", range}});
  }
  // A visitor's "download" of `path` ("" for none) as a fetch of `mode`.
  plyth_test::HandlerRun Navigate(const std::string& path, const std::string& mode) {
    return RunFiles(plyth_services::FilesDownloadFunc, "download", Params({{"path", path}}), "anonymous",
                    {{"HTTP_SEC_FETCH_MODE", mode}});
  }
};

std::string Digits(const char* status, const char* length, const char* contentRange, const char* body) {
  return std::string("Status: ") + status + "\r\nContent-Type: text/plain\r\nContent-Length: " + length + "\r\n" +
         contentRange + "Accept-Ranges: bytes\r\n"
         "Content-Disposition: attachment; filename=\"digits.txt\"; filename*=UTF-8''digits.txt\r\n"
         "X-Content-Type-Options: nosniff\r\n\r\n" + body;
}

// A reader gets exact bytes; a refusal writes nothing itself and leaves the
// framework's JSON answer on.
TEST_F(Download, ReadersGetExactBytesEvenAcrossTheCopyBufferAndOthersNothing) {
  const Item digits = AddItem("alice", "/docs/digits.txt", "0123456789");
  const std::string viewer = TokenFor(Share(digits, "", 0, Role::kViewer));
  // `token`: a visitor holding a viewer's token; else the owner.
  struct Row { const char* range; std::string answer; bool token = false; } rows[] = {
      {.range = "", .answer = Digits("200 OK", "10", "", "0123456789")},
      {.range = "bytes=2-5", .answer = Digits("206 Partial Content", "4", "Content-Range: bytes 2-5/10\r\n", "2345"),
       .token = true},
      {.range = "bytes=10-", .answer = "Status: 416 Range Not Satisfiable\r\nContent-Range: bytes */10\r\n"
                 "Content-Length: 0\r\nAccept-Ranges: bytes\r\n\r\n"}};
  for (const Row& row : rows) {
    EXPECT_EQ(Get(digits, row.token ? "anonymous" : "alice", row.range, row.token ? viewer : "").answer, row.answer)
        << row.range;
  }
  struct Refusal { const char* what; plyth_test::HandlerRun run; int code; } refusals[] = {
      {.what = "previewer token", .run = Get(digits, "anonymous", "", TokenFor(Share(digits, "", 0, Role::kPreviewer))),
       .code = 1002},
      {.what = "folder", .run = Get(Find("alice", "/docs"), "alice", ""), .code = 1004}};
  for (const Refusal& row : refusals) {
    EXPECT_EQ(row.run.stdoutBytes, "") << row.what;
    EXPECT_TRUE(row.run.response.IsEnableOutput()) << row.what;
    EXPECT_EQ(row.run.response.GetErrorCode(), row.code) << row.what;
  }

  // A range across the copy buffer's ends.
  std::string content;
  for (int i = 0; i < 200000; ++i) content += static_cast<char>('a' + i % 23);
  const std::string answer = Get(AddItem("alice", "/big.bin", content), "alice", "bytes=65000-140000").answer;
  const std::string head = "Status: 206 Partial Content\r\nContent-Type: application/octet-stream\r\n"
                           "Content-Length: 75001\r\nContent-Range: bytes 65000-140000/200000\r\n";
  EXPECT_EQ(answer.substr(0, head.size()), head);
  EXPECT_TRUE(answer.substr(answer.size() - 75001) == content.substr(65000, 75001));
}

// A browser that navigates to a refused download gets a status and a page;
// a script keeps the JSON error.
TEST_F(Download, RefusedToANavigationIsAPageWithAStatus) {
  root_.WriteFile("/usr/zant/zantman/texts/enu/strings",
                  "[download]\ntitle = \"No <download>\"\nremoved = \"In the bin & gone.\"\n");
  const Item plan = AddItem("alice", "/docs/plan.txt", "plan");
  const Item binned = AddItem("alice", "/old/binned.txt", "x");
  ASSERT_EQ(plyth_services::SetLinkAccess(Db(), binned, Visibility::kAnyone, Role::kViewer), 0);
  ASSERT_EQ(plyth_services::SetRemoved(Db(), binned, true), 0);
  EXPECT_EQ(Navigate("link:" + binned.permanent_link, "navigate").answer,
            "Status: 410 Gone\r\nContent-Type: text/html; charset=UTF-8\r\nContent-Length: 257\r\n"
            "Cache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n\r\n"
            "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"UTF-8\">\n"
            "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
            "<title>No &lt;download&gt;</title>\n</head>\n<body>\n<h1>No &lt;download&gt;</h1>\n"
            "<p>In the bin &amp; gone.</p>\n</body>\n</html>\n");
  const plyth_test::HandlerRun script = Navigate("link:" + binned.permanent_link, "cors");
  EXPECT_EQ(script.stdoutBytes, "");
  EXPECT_EQ(script.response.GetErrorCode(), 408) << "the bin stays 408 to scripts";
  struct Row { const char* why; std::string path; const char* status; } rows[] = {
      {.why = "no path", .path = "", .status = "400 Bad Request"},
      {.why = "unknown link", .path = "link:NoSuchLink0000", .status = "404 Not Found"},
      {.why = "members only", .path = "link:" + plan.permanent_link, .status = "403 Forbidden"}};
  for (const Row& row : rows) {
    const std::string answer = Navigate(row.path, "navigate").answer;
    EXPECT_EQ(answer.substr(0, answer.find("\r\n")), std::string("Status: ") + row.status) << row.why;
  }
}

}  // namespace
}  // namespace services_test
