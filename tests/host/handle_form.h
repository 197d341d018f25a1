// The framework's answer, in-process, to a request of `query` with the form
// `body` (a POST when there is one) and the server variables `vars`.
#pragma once

#include <sstream>
#include <string>

#include "zant_host/host.h"

namespace host_test {

inline std::string HandleForm(const std::string& query, const std::string& body = "", zant_host::CgiVars vars = {}) {
  vars.insert(vars.end(), {{"QUERY_STRING", query},
                           {"REQUEST_METHOD", body.empty() ? "GET" : "POST"},
                           {"CONTENT_TYPE", "application/x-www-form-urlencoded"}});
  std::istringstream in(body);
  auto reader = [&](char* buffer, size_t size) { return static_cast<long>(in.read(buffer, size).gcount()); };
  return zant_host::HandleRequest(vars, reader, zant_host::Limits());
}

}  // namespace host_test
