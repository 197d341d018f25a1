// The parameter guard. Patterns are a character class and a length range,
// checked byte by byte: no regular-expression engine runs on a request.
#include "zant_host/param_guard.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "zant/appliance.h"
#include "zant/json_util.h"
#include "zant_host/host.h"

namespace zant_host {

const char kParamRulesFile[] = "/usr/zant/etc/param_guard.conf";

namespace {

constexpr size_t kMaxPatternLength = 1 << 20;
const char kWhitespace[] = " \t\r";

// A link identifier of the sharing-link landing, in every method.
const char kIdentifier[] = "[A-Za-z0-9_-]{0,128}";
struct BuiltinRow {
  const char* api;
  const char* method;
  const char* param;
  const char* pattern;
};
const BuiltinRow kBuiltinRules[] = {
    {.api = "ZANT.BrindlexPlyth.Shard", .method = "*", .param = "link_id", .pattern = kIdentifier},
    {.api = "ZANT.BrindlexPlyth.Shard", .method = "*", .param = "sharing_link", .pattern = kIdentifier},
    {.api = "ZANT.BrindlexPlyth.Shard", .method = "*", .param = "permanent_link", .pattern = kIdentifier},
};

// "[...]" at the start of `text`: ranges "a-z", single characters, a "-"
// first or last stands for itself. Printable ASCII only, no negation.
bool ParseClass(const std::string& text, size_t* end, std::bitset<256>* allowed, std::string* error) {
  const size_t close = text.find(']', 1);
  if (text.empty() || text[0] != '[' || close == std::string::npos || close == 1) {
    *error = "expected a character class such as [A-Za-z0-9]";
    return false;
  }
  if (text[1] == '^') {
    *error = "a class lists what is allowed; \"^\" cannot start it";
    return false;
  }
  for (size_t i = 1; i < close; ++i) {
    const size_t at = i;
    const unsigned char first = static_cast<unsigned char>(text[i]);
    unsigned char last = first;
    if (i + 2 < close && text[i + 1] == '-') {
      last = static_cast<unsigned char>(text[i + 2]);
      i += 2;
    }
    if (first < 0x21 || last > 0x7e || first > last) {
      *error = "bad class member at \"" + text.substr(at) + "\"";
      return false;
    }
    for (unsigned c = first; c <= last; ++c) allowed->set(c);
  }
  *end = close + 1;
  return true;
}

bool ParseCount(const std::string& text, size_t* value) {
  if (text.empty() || text.size() > 7 || text.find_first_not_of("0123456789") != std::string::npos) return false;
  *value = std::stoul(text);
  return *value <= kMaxPatternLength;
}

// "{n}" or "{min,max}", the whole rest of the pattern.
bool ParseRange(const std::string& text, size_t* minLength, size_t* maxLength, std::string* error) {
  const std::string inner = text.size() >= 3 && text.front() == '{' && text.back() == '}'
                              ? text.substr(1, text.size() - 2)
                              : std::string();
  const size_t comma = inner.find(',');
  const bool counted = comma == std::string::npos
                           ? ParseCount(inner, minLength) && ParseCount(inner, maxLength)
                           : ParseCount(inner.substr(0, comma), minLength) &&
                                 ParseCount(inner.substr(comma + 1), maxLength);
  if (!counted) {
    *error = "expected a length range {min,max} or {n} after the class";
    return false;
  }
  if (*minLength > *maxLength) {
    *error = "the length range ends before it starts";
    return false;
  }
  return true;
}

std::vector<std::string> Fields(const std::string& line) {
  std::vector<std::string> fields;
  size_t at = line.find_first_not_of(kWhitespace);
  while (at != std::string::npos) {
    const size_t end = line.find_first_of(kWhitespace, at);
    fields.push_back(line.substr(at, end == std::string::npos ? std::string::npos : end - at));
    at = end == std::string::npos ? end : line.find_first_not_of(kWhitespace, end);
  }
  return fields;
}

bool Applies(const ParamRule& rule, const ZANT::APIRequest& request) {
  return (rule.api == "*" || rule.api == request.GetAPI()) &&
         (rule.method == "*" || rule.method == request.GetMethod());
}

// The text a handler reads from the value; false for an array or object.
bool ValueText(const Json::Value& value, std::string* text) {
  if (!value.isConvertibleTo(Json::stringValue)) return false;
  *text = value.isString() ? value.asString() : value.isNull() ? std::string() : ZANT::JsonToString(value);
  return true;
}

std::vector<ParamRule>& ProcessRules() {
  static std::vector<ParamRule> rules = BuiltinParamRules();
  return rules;
}

}  // namespace

bool ParamPattern::Matches(const std::string& value) const {
  if (value.size() < minLength || value.size() > maxLength) return false;
  for (unsigned char c : value) {
    if (!allowed.test(c)) return false;
  }
  return true;
}

bool ParseParamPattern(const std::string& text, ParamPattern* pattern, std::string* error) {
  ParamPattern parsed;
  size_t end = 0;
  if (!ParseClass(text, &end, &parsed.allowed, error)) return false;
  if (!ParseRange(text.substr(end), &parsed.minLength, &parsed.maxLength, error)) return false;
  *pattern = parsed;
  return true;
}

bool ParseParamRules(const std::string& text, std::vector<ParamRule>* rules, std::string* error) {
  std::vector<ParamRule> parsed;
  std::istringstream lines(text);
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    const std::vector<std::string> fields = Fields(line);
    if (fields.empty() || fields[0][0] == '#') continue;
    std::string reason;
    ParamRule rule;
    if (fields.size() != 4) {
      reason = "expected API METHOD PARAMETER PATTERN";
    } else if (ParseParamPattern(fields[3], &rule.pattern, &reason)) {
      rule.api = fields[0];
      rule.method = fields[1];
      rule.param = fields[2];
      parsed.push_back(rule);
      continue;
    }
    *error = "line " + std::to_string(number) + ": " + reason;
    return false;
  }
  *rules = std::move(parsed);
  return true;
}

const std::vector<ParamRule>& BuiltinParamRules() {
  static const std::vector<ParamRule> rules = [] {
    std::vector<ParamRule> built;
    for (const BuiltinRow& row : kBuiltinRules) {
      ParamRule rule{.api = row.api, .method = row.method, .param = row.param, .pattern = {}};
      std::string ignored;
      ParseParamPattern(row.pattern, &rule.pattern, &ignored);
      built.push_back(rule);
    }
    return built;
  }();
  return rules;
}

std::vector<ParamRule> LoadParamRules() {
  const std::string path = ZANT::RootPath(kParamRulesFile);
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    if (errno != ENOENT) HostLog(true, "parameter guard: cannot read %s (%s): built-in rules", path.c_str(), strerror(errno));
    return BuiltinParamRules();
  }
  std::ostringstream text;
  text << in.rdbuf();
  std::vector<ParamRule> rules;
  std::string error;
  if (!ParseParamRules(text.str(), &rules, &error)) {
    HostLog(true, "parameter guard: %s %s: built-in rules", path.c_str(), error.c_str());
    return BuiltinParamRules();
  }
  if (rules.empty()) HostLog(false, "parameter guard: off (%s has no rules)", path.c_str());
  return rules;
}

namespace {

// A parameter is checked by the text a handler reads from it: a JSON string
// as it is, a number or boolean by its text, null as the empty text; an
// array or an object never passes.
bool ParamsMeetRules(const std::vector<ParamRule>& rules, const ZANT::APIRequest& request) {
  for (const ParamRule& rule : rules) {
    if (!Applies(rule, request) || !request.HasParam(rule.param)) continue;
    std::string text;
    if (!ValueText(request.GetParamRef(rule.param, Json::Value()), &text) || !rule.pattern.Matches(text)) {
      return false;
    }
  }
  return true;
}

}  // namespace

void UseParamRules(std::vector<ParamRule> rules) { ProcessRules() = std::move(rules); }

bool ParamGuardAdmits(const ZANT::APIRequest& request) { return ParamsMeetRules(ProcessRules(), request); }

std::string ParamRefusedAnswer() {
  ZANT::APIResponse response;
  response.SetError(kErrParamRefused);
  response.SetHeader("Status", "400 Bad Request");
  return ZANT::FormatFrameworkAnswer(response);
}

}  // namespace zant_host
