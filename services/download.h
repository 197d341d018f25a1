// Serving an item's content: the media type, the attachment header, byte
// ranges, and the CGI answer with the content itself.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace plyth_services {

// Media type from the name's extension (case-insensitive);
// "application/octet-stream" when unknown.
std::string ContentTypeFor(const std::string& name);

// "attachment; filename=\"<fallback>\"; filename*=UTF-8''<encoded>": the
// fallback keeps printable ASCII and writes "_" for other bytes and for
// the double quote and the backslash; the encoded form percent-encodes
// every byte outside RFC 5987's attr-char set.
std::string ContentDisposition(const std::string& name);

// The answer to a "Range:" header for content of `size` bytes.
struct ByteRange {
  uint64_t first = 0;
  uint64_t last = 0;  // inclusive
};
enum class RangeAnswer {
  kWhole,          // no header, or one this server ignores: send everything (200)
  kPartial,        // one satisfiable range (206)
  kUnsatisfiable,  // 416
};
// Understands one "bytes=" range ("a-b", "a-", "-n"). A malformed header,
// another unit, or a list of several ranges is ignored (kWhole).
RangeAnswer ParseRange(const std::string& header, uint64_t size, ByteRange* range);

// Writes the complete CGI answer for `name`'s content held in `file`
// (`size` bytes) to `out`: "Status:" line, headers, blank line, and the
// bytes that the range asks for. False when the content could not be read
// to the end (the answer is then cut short).
bool WriteDownload(FILE* out, const std::string& name, FILE* file, uint64_t size,
                   const std::string& rangeHeader);

// A refused download as a page for a browser that navigated to it, so that
// a download link never saves an error answer as the file: "Status:"
// `status` (such as "410 Gone"), a no-store HTML page in language `htmlLang`
// with `title` and `text` (both escaped here).
void WriteRefusalPage(FILE* out, const std::string& status, const std::string& htmlLang,
                      const std::string& title, const std::string& text);

}  // namespace plyth_services
