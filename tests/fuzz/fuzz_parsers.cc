// libFuzzer target: arbitrary bytes as a client's JSON request for the four
// request parsers, and as a client-supplied path for IsSafePath. A parser
// that throws, reads out of bounds or trips a sanitizer is a finding.
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include <json/json.h>

#include "plyth_utils.h"

// The parsers log rejections; format them (so that a bad format argument
// still shows under the sanitizers) but keep them out of the system log.
extern "C" void syslog(int, const char* format, ...) {
  char buffer[1024];
  va_list args;
  va_start(args, format);
  vsnprintf(buffer, sizeof(buffer), format, args);
  va_end(args);
}

namespace {

void FeedParsers(const Json::Value& request) {
  Tarnova::MemberSelector member;
  JsonReqToMemberSelector(request, member);

  Tarnova::LabelEditAction label;
  if (JsonReqToLabelAction(request, label) == 0 && label.action.empty()) __builtin_trap();

  Tarnova::StarEditAction star;
  JsonReqToStarAction(request, star);

  bool starred = false;
  std::string labelId;
  std::vector<std::string> types;
  std::vector<std::string> extensions;
  ParseFileListFilter(request, starred, labelId, types, extensions);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);

  const bool safe = IsSafePath(text);
  if (safe && text.find('\\') != std::string::npos) __builtin_trap();

  Json::Value request;
  try {
    Json::Reader reader;
    if (!reader.parse(text, request, true)) return 0;
  } catch (const std::exception&) {
    return 0;  // nested past the reader's limit: not a request the parsers see
  }
  FeedParsers(request);
  // Requests usually carry these shapes one level down.
  if (request.isObject()) {
    for (const char* key : {"member", "label", "starred", "filter"}) FeedParsers(request[key]);
  }
  return 0;
}
