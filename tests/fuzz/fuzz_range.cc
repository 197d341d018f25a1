// libFuzzer target: a "Range:" header against content of a fuzzed size,
// and the whole download answer for a small content. A partial answer lies
// inside the content; the answer's Content-Length is the number of bytes
// that follow the head, and those are the bytes the range names.
#include "download.h"
#include "fuzz_support.h"

namespace {

using plyth_services::ByteRange;
using plyth_services::RangeAnswer;

// The answer of WriteDownload: its head (with the last line's CRLF) and what follows.
std::pair<std::string, std::string> Download(const std::string& name, const std::string& content,
                                             const std::string& header) {
  char* answer = nullptr;
  size_t answerSize = 0;
  FILE* out = open_memstream(&answer, &answerSize);
  FILE* file = fmemopen(const_cast<char*>(content.data()), content.size() + 1, "rb");
  FUZZ_CHECK(out != nullptr && file != nullptr);
  FUZZ_CHECK(plyth_services::WriteDownload(out, name, file, content.size(), header));
  std::fclose(file);
  std::fclose(out);
  const std::string text(answer, answerSize);
  std::free(answer);
  const size_t end = text.find("\r\n\r\n");
  FUZZ_CHECK(end != std::string::npos);
  return {text.substr(0, end + 2), text.substr(end + 4)};
}

}  // namespace

FUZZ_DATA_TARGET(FuzzedDataProvider& in) {
  const std::string name = in.ConsumeRandomLengthString(64);
  const std::string content = in.ConsumeRandomLengthString(256);
  const uint64_t bigSize = in.ConsumeIntegral<uint64_t>();
  const std::string header = in.ConsumeRemainingBytesAsString();
  ByteRange range;
  for (const uint64_t size : {bigSize, uint64_t{0}}) {
    if (plyth_services::ParseRange(header, size, &range) == RangeAnswer::kPartial) {
      FUZZ_CHECK(size > 0 && range.first <= range.last && range.last < size);
    }
  }

  const auto [head, sent] = Download(name, content, header);
  // No byte of the name may end a header line early.
  for (unsigned char c : head.substr(0, head.size() - 2)) {
    FUZZ_CHECK(c == '\r' || c == '\n' || (c >= 0x20 && c != 0x7f));
  }
  FUZZ_CHECK(head.find("\r\nContent-Length: " + std::to_string(sent.size()) + "\r\n") != std::string::npos);
  // The status is the first line.
  switch (plyth_services::ParseRange(header, content.size(), &range)) {
    case RangeAnswer::kPartial:
      FUZZ_CHECK(head.rfind("Status: 206 Partial Content\r\n", 0) == 0);
      FUZZ_CHECK(sent == content.substr(range.first, range.last - range.first + 1));
      break;
    case RangeAnswer::kWhole:
      FUZZ_CHECK(head.rfind("Status: 200 OK\r\n", 0) == 0 && sent == content);
      break;
    case RangeAnswer::kUnsatisfiable:
      FUZZ_CHECK(head.rfind("Status: 416 Range Not Satisfiable\r\n", 0) == 0 && sent.empty());
      break;
  }
}
