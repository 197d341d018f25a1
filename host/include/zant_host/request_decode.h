// Turning one CGI request (server variables and body) into a
// ZANT::APIRequest: which variables count as server variables, how the query
// string and a form body become parameters, and the size limits.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <json/json.h>

#include "zant/webapi.h"

namespace zant_host {

// Name and value of each variable the web server handed over, in its order.
using CgiVars = std::vector<std::pair<std::string, std::string>>;
// Decoded name and value of each form field, in order of appearance.
using FormFields = std::vector<std::pair<std::string, std::string>>;

// Request size limits. Exceeding one answers error 108.
struct Limits {
  size_t maxQuery = 64 * 1024;     // QUERY_STRING bytes
  size_t maxBody = 1024 * 1024;    // form body bytes
  size_t maxCookie = 64 * 1024;    // HTTP_COOKIE bytes
  size_t maxFields = 1024;         // query and body fields together
};

// True for the names the web server sets for a request: HTTP_*, SERVER_*,
// REMOTE_*, REQUEST_*, CONTENT_*, SCRIPT_*, PATH_INFO, PATH_TRANSLATED,
// DOCUMENT_*, QUERY_STRING, GATEWAY_INTERFACE, AUTH_TYPE, REDIRECT_STATUS,
// HTTPS, HOST, REWRITE_APP.
bool IsServerVariable(const std::string& name);

// The server variables among `environ`-style "NAME=value" entries.
CgiVars ServerVarsFromEnviron(char** envp);

// The value of `name`, or `def` when absent. The first entry counts.
std::string FindVar(const CgiVars& vars, const std::string& name, const std::string& def = "");

// The JSON value of `text` when it is a JSON text, else `text` as a string.
Json::Value ValueFromText(const std::string& text);

// Splits "a=1&b=%20" into decoded fields ("+" is a blank; a field without
// "=" has an empty value; empty fields are skipped) and appends them to
// `fields`. Answers 0, 101 for a malformed percent escape, or 108 when
// `fields` would hold more than `maxFields`.
int ParseForm(const std::string& text, size_t maxFields, FormFields* fields);

// Reads up to `size` bytes into `buffer`: the count, 0 at the end, <0 on error.
using BodyReader = std::function<long(char* buffer, size_t size)>;

// True when the request carries a form body that becomes parameters: method
// POST and CONTENT_TYPE application/x-www-form-urlencoded (any case, with or
// without parameters such as "; charset=UTF-8").
bool HasFormBody(const CgiVars& vars);

// Reads the form body (nothing when HasFormBody is false). CONTENT_LENGTH,
// when given, is how much is read; without it the body runs to the end of
// the input. Answers 0, 101 (CONTENT_LENGTH not a number, or the input ends
// early or fails) or 108 (more than limits.maxBody).
int ReadFormBody(const CgiVars& vars, const BodyReader& read, const Limits& limits,
                 std::string* body);

// Fills `request` from the server variables and the form body: every server
// variable, the cookies of HTTP_COOKIE, the API selection ("api", "version",
// "method") and the other fields as parameters (query first, then body; the
// first occurrence of a name counts). Answers 0 or the error to answer with:
// 101 (malformed percent escape; "api" or "method" missing or not a string;
// "version" missing or not an integer), 108 (a limit exceeded). Server
// variables are set in every case.
// `fields`, when given, receives every decoded field as text.
int DecodeRequest(const CgiVars& vars, const std::string& body, const Limits& limits,
                  ZANT::APIRequest* request, FormFields* fields = nullptr);

}  // namespace zant_host
