// libFuzzer target: arbitrary bytes as a client's JSON request for the four
// request parsers, and as a client-supplied path for IsSafePath. A parser
// that throws, reads out of bounds or trips a sanitizer is a finding.
#include <cstdarg>
#include <exception>
#include <vector>

#include <json/json.h>

#include "fuzz_support.h"
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
  FUZZ_CHECK(JsonReqToLabelAction(request, label) != 0 || !label.action.empty());
  Tarnova::StarEditAction star;
  JsonReqToStarAction(request, star);
  bool starred = false;
  std::string labelId;
  std::vector<std::string> types, extensions;
  ParseFileListFilter(request, starred, labelId, types, extensions);
}

}  // namespace

FUZZ_TEXT_TARGET(const std::string& text) {
  FUZZ_CHECK(!IsSafePath(text) || text.find('\\') == std::string::npos);
  Json::Value request;
  try {
    if (!Json::Reader().parse(text, request, true)) return;
  } catch (const std::exception&) {
    return;  // nested past the reader's limit: not a request the parsers see
  }
  FeedParsers(request);
  // Requests usually carry these shapes one level down.
  if (request.isObject()) {
    for (const char* key : {"member", "label", "starred", "filter"}) FeedParsers(request[key]);
  }
}
