#include "download.h"

#include <cctype>
#include <cinttypes>
#include <cstring>
#include <limits>

#include "zant/webapi.h"

namespace plyth_services {

namespace {

struct MediaType {
  const char* extension;
  const char* type;
};
// Sorted by extension for the reader's sake; searched linearly.
const MediaType kMediaTypes[] = {
    {"7z", "application/x-7z-compressed"},
    {"aac", "audio/aac"},
    {"avi", "video/x-msvideo"},
    {"bmp", "image/bmp"},
    {"css", "text/css"},
    {"csv", "text/csv"},
    {"doc", "application/msword"},
    {"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
    {"flac", "audio/flac"},
    {"gif", "image/gif"},
    {"gz", "application/gzip"},
    {"htm", "text/html"},
    {"html", "text/html"},
    {"ico", "image/vnd.microsoft.icon"},
    {"jpeg", "image/jpeg"},
    {"jpg", "image/jpeg"},
    {"js", "text/javascript"},
    {"json", "application/json"},
    {"m4a", "audio/mp4"},
    {"md", "text/markdown"},
    {"mkv", "video/x-matroska"},
    {"mov", "video/quicktime"},
    {"mp3", "audio/mpeg"},
    {"mp4", "video/mp4"},
    {"odp", "application/vnd.oasis.opendocument.presentation"},
    {"ods", "application/vnd.oasis.opendocument.spreadsheet"},
    {"odt", "application/vnd.oasis.opendocument.text"},
    {"ogg", "audio/ogg"},
    {"pdf", "application/pdf"},
    {"png", "image/png"},
    {"ppt", "application/vnd.ms-powerpoint"},
    {"pptx", "application/vnd.openxmlformats-officedocument.presentationml.presentation"},
    {"rtf", "application/rtf"},
    {"svg", "image/svg+xml"},
    {"tar", "application/x-tar"},
    {"tif", "image/tiff"},
    {"tiff", "image/tiff"},
    {"txt", "text/plain"},
    {"wav", "audio/wav"},
    {"webm", "video/webm"},
    {"webp", "image/webp"},
    {"xls", "application/vnd.ms-excel"},
    {"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
    {"xml", "application/xml"},
    {"zip", "application/zip"},
};

// strchr() also finds the terminating NUL: a NUL byte must not count.
bool IsAttrChar(unsigned char c) {
  return isalnum(c) || (c != '\0' && strchr("!#$&+-.^_`|~", c) != nullptr);
}

// Decimal digits only; saturates instead of overflowing, which a range
// check against the size then rejects.
bool ParseNumber(const std::string& text, uint64_t* value) {
  if (text.empty()) return false;
  uint64_t out = 0;
  const uint64_t max = std::numeric_limits<uint64_t>::max();
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    unsigned digit = static_cast<unsigned>(c - '0');
    out = out > (max - digit) / 10 ? max : out * 10 + digit;
  }
  *value = out;
  return true;
}

std::string Trim(const std::string& text) {
  size_t start = text.find_first_not_of(" \t");
  if (start == std::string::npos) return std::string();
  size_t end = text.find_last_not_of(" \t");
  return text.substr(start, end - start + 1);
}

void Line(std::string& out, const char* name, const std::string& value) {
  out += name;
  out += ": ";
  out += value;
  out += "\r\n";
}

}  // namespace

std::string ContentTypeFor(const std::string& name) {
  size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot + 1 == name.size()) return "application/octet-stream";
  std::string extension = name.substr(dot + 1);
  for (char& c : extension) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  for (const MediaType& entry : kMediaTypes) {
    if (extension == entry.extension) return entry.type;
  }
  return "application/octet-stream";
}

std::string ContentDisposition(const std::string& name) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string fallback;
  std::string encoded;
  for (unsigned char c : name) {
    fallback += (c >= 0x20 && c < 0x7f && c != '"' && c != '\\') ? static_cast<char>(c) : '_';
    if (IsAttrChar(c)) {
      encoded += static_cast<char>(c);
    } else {
      encoded += '%';
      encoded += kHex[c >> 4];
      encoded += kHex[c & 15];
    }
  }
  return "attachment; filename=\"" + fallback + "\"; filename*=UTF-8''" + encoded;
}

RangeAnswer ParseRange(const std::string& header, uint64_t size, ByteRange* range) {
  const std::string text = Trim(header);
  static const char kUnit[] = "bytes=";
  if (text.compare(0, sizeof(kUnit) - 1, kUnit) != 0) return RangeAnswer::kWhole;
  const std::string rangeSet = Trim(text.substr(sizeof(kUnit) - 1));
  if (rangeSet.find(',') != std::string::npos) return RangeAnswer::kWhole;
  size_t dash = rangeSet.find('-');
  if (dash == std::string::npos) return RangeAnswer::kWhole;
  const std::string firstText = rangeSet.substr(0, dash);
  const std::string lastText = rangeSet.substr(dash + 1);
  uint64_t first = 0;
  uint64_t last = 0;

  if (firstText.empty()) {  // "-n": the last n bytes
    uint64_t suffix = 0;
    if (!ParseNumber(lastText, &suffix)) return RangeAnswer::kWhole;
    if (suffix == 0 || size == 0) return RangeAnswer::kUnsatisfiable;
    range->first = suffix >= size ? 0 : size - suffix;
    range->last = size - 1;
    return RangeAnswer::kPartial;
  }
  if (!ParseNumber(firstText, &first)) return RangeAnswer::kWhole;
  if (lastText.empty()) {
    last = std::numeric_limits<uint64_t>::max();
  } else if (!ParseNumber(lastText, &last) || last < first) {
    return RangeAnswer::kWhole;
  }
  if (first >= size) return RangeAnswer::kUnsatisfiable;
  range->first = first;
  range->last = last >= size ? size - 1 : last;
  return RangeAnswer::kPartial;
}

bool WriteDownload(FILE* out, const std::string& name, FILE* file, uint64_t size,
                   const std::string& rangeHeader) {
  ByteRange range;
  const RangeAnswer answer = ParseRange(rangeHeader, size, &range);
  std::string head;
  if (answer == RangeAnswer::kUnsatisfiable) {
    Line(head, "Status", "416 Range Not Satisfiable");
    Line(head, "Content-Range", "bytes */" + std::to_string(size));
    Line(head, "Content-Length", "0");
    Line(head, "Accept-Ranges", "bytes");
    head += "\r\n";
    fwrite(head.data(), 1, head.size(), out);
    fflush(out);
    return true;
  }
  if (answer == RangeAnswer::kWhole) {
    range.first = 0;
    range.last = size == 0 ? 0 : size - 1;
  }
  const uint64_t length = size == 0 ? 0 : range.last - range.first + 1;
  if (answer == RangeAnswer::kPartial) {
    Line(head, "Status", "206 Partial Content");
  } else {
    Line(head, "Status", "200 OK");
  }
  Line(head, "Content-Type", ContentTypeFor(name));
  Line(head, "Content-Length", std::to_string(length));
  if (answer == RangeAnswer::kPartial) {
    Line(head, "Content-Range", "bytes " + std::to_string(range.first) + "-" +
                                    std::to_string(range.last) + "/" + std::to_string(size));
  }
  Line(head, "Accept-Ranges", "bytes");
  Line(head, "Content-Disposition", ContentDisposition(name));
  Line(head, "X-Content-Type-Options", "nosniff");
  head += "\r\n";
  fwrite(head.data(), 1, head.size(), out);

  bool complete = length == 0 || fseeko(file, static_cast<off_t>(range.first), SEEK_SET) == 0;
  char buffer[65536];
  uint64_t left = complete ? length : 0;
  while (left > 0) {
    size_t want = left < sizeof(buffer) ? static_cast<size_t>(left) : sizeof(buffer);
    size_t got = fread(buffer, 1, want, file);
    if (got == 0) {
      complete = false;
      break;
    }
    if (fwrite(buffer, 1, got, out) != got) {
      complete = false;
      break;
    }
    left -= got;
  }
  fflush(out);
  return complete;
}

void WriteRefusalPage(FILE* out, const std::string& status, const std::string& htmlLang,
                      const std::string& title, const std::string& text) {
  const auto html = [](const std::string& text) { return ZANT::WebAPIUtil::EncodeHtml(text, false); };
  const std::string body = "<!DOCTYPE html>\n<html lang=\"" + html(htmlLang) +
                           "\">\n<head>\n<meta charset=\"UTF-8\">\n"
                           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                           "<title>" + html(title) + "</title>\n</head>\n<body>\n<h1>" +
                           html(title) + "</h1>\n<p>" + html(text) + "</p>\n</body>\n</html>\n";
  std::string head;
  Line(head, "Status", status);
  Line(head, "Content-Type", "text/html; charset=UTF-8");
  Line(head, "Content-Length", std::to_string(body.size()));
  Line(head, "Cache-Control", "no-store");
  Line(head, "X-Content-Type-Options", "nosniff");
  head += "\r\n";
  fwrite(head.data(), 1, head.size(), out);
  fwrite(body.data(), 1, body.size(), out);
  fflush(out);
}

}  // namespace plyth_services
