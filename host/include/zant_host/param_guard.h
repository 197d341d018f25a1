// The parameter guard: rules that a request's parameters must meet before
// the framework hands the request to a handler. A refused request gets the
// framework's own error 120 with HTTP status 400 and reaches no module.
#pragma once

#include <bitset>
#include <string>
#include <vector>

#include "zant/webapi.h"

namespace zant_host {

// Error of the guard: a parameter does not meet its rule.
constexpr int kErrParamRefused = 120;

// Appliance path of the rules file.
extern const char kParamRulesFile[];  // "/usr/zant/etc/param_guard.conf"

// A character class and a length range, written "[A-Za-z0-9_-]{0,128}" or
// "[0-9]{4}": a value passes when every byte is in the class and its length
// in bytes lies in the range.
struct ParamPattern {
  std::bitset<256> allowed;
  size_t minLength = 0;
  size_t maxLength = 0;
  bool Matches(const std::string& value) const;
};

// One rule: `param` of requests for `api` and `method` ("*": any method,
// or any API) must match `pattern` when it is present.
struct ParamRule {
  std::string api;
  std::string method;
  std::string param;
  ParamPattern pattern;
};

// False, with the reason in `error`, when `text` is not a pattern.
bool ParseParamPattern(const std::string& text, ParamPattern* pattern, std::string* error);

// The rules of a rules file's text: one rule a line, "API METHOD PARAMETER
// PATTERN" separated by blanks; blank lines and lines starting with "#" are
// skipped. False, with "line N: reason" in `error`, at the first bad line.
bool ParseParamRules(const std::string& text, std::vector<ParamRule>* rules, std::string* error);

// The rules the guard falls back to: link_id, sharing_link and
// permanent_link of every method of "ZANT.BrindlexPlyth.Shard" are empty or
// 1-128 characters of [A-Za-z0-9_-].
const std::vector<ParamRule>& BuiltinParamRules();

// The rules of RootPath(kParamRulesFile): the built-in rules when the file
// is missing, cannot be read or has a bad line (logged as an error); no
// rules at all when it holds none (an operator's choice, logged).
std::vector<ParamRule> LoadParamRules();

// The rules of this process (the built-in ones until replaced): InitHost
// installs LoadParamRules(), tests install their own.
void UseParamRules(std::vector<ParamRule> rules);
bool ParamGuardAdmits(const ZANT::APIRequest& request);

// The guard's refusal as the framework sends it.
std::string ParamRefusedAnswer();

}  // namespace zant_host
