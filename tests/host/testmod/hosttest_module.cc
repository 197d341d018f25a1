// ZANT.HostTest.so: a web-API module that exercises the framework (raw
// output, redirects, refused checks, a crash, a hang, a long answer). Used by
// the black-box and integration tests.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "zant/appliance.h"
#include "zant/webapi.h"

namespace {

using Request = ZANT::APIRequest;
using Response = ZANT::APIResponse;

void Echo(Request* request, Response* response) { response->SetSuccess(request->GetParams()); }

// A raw cookie line with the output left on, then a redirect.
void CookieRedirect(Request*, Response* response) {
  printf("Set-Cookie: a=b; path=/\r\n");
  response->SetSuccess();
  response->SetHeader("Location", "http://example.test/landing");
}

// The output switched off: every byte is the handler's, written through
// stdio, the file descriptor and iostreams alike.
void Raw(Request*, Response* response) {
  printf("Set-Cookie: raw=1; path=/\r\n");
  response->SetEnableOutput(false);
  printf("Content-Type:text/plain\r\n\r\n");
  fflush(stdout);
  if (write(STDOUT_FILENO, "A", 1) != 1) return;
  printf("B");
  std::cout << "C";
}

// Marks its start in a file of the root, so a test knows the request is in hand.
void Sleep(Request* request, Response* response) {
  const int ms = request->GetParamRef("ms", Json::Value(0)).asInt();
  std::ofstream(ZANT::RootPath("/var/log/hosttest-sleep.log"), std::ios::app) << "started\n";
  std::this_thread::sleep_for(std::chrono::milliseconds(ms));
  Json::Value data;
  data["slept"] = ms;
  response->SetSuccess(data);
}

// The output switched off, then `chunks` lines of `size` bytes, `ms` apart:
// a long download that keeps sending.
void Stream(Request* request, Response* response) {
  const int chunks = request->GetParamRef("chunks", Json::Value(1)).asInt();
  const int size = request->GetParamRef("size", Json::Value(16)).asInt();
  const int ms = request->GetParamRef("ms", Json::Value(0)).asInt();
  response->SetEnableOutput(false);
  printf("Content-Type: application/octet-stream\r\n\r\n");
  const std::string line = std::string(static_cast<size_t>(size > 1 ? size - 1 : 0), 'x') + "\n";
  for (int i = 0; i < chunks; ++i) {
    fwrite(line.data(), 1, line.size(), stdout);
    fflush(stdout);
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
  }
}

int Allow(Request*) { return 1; }

// Every method is version 1. check nullptr: no check row, so the framework refuses the method.
struct Row { const char* method; ZANT::APIHandler handler; ZANT::APICheck check; };

const Row kRows[] = {
    {"echo", Echo, Allow},
    {"cookie_redirect", CookieRedirect, Allow},
    {"raw", Raw, Allow},
    {"sleep", Sleep, Allow},
    {"stream", Stream, Allow},
    // abort(), not a bad pointer: sanitizer builds turn SIGSEGV into an exit.
    {"crash", [](Request*, Response*) { abort(); }, Allow},
    {"two", Echo, [](Request*) { return 2; }},
    {"nocheck", Echo, nullptr}};

}  // namespace

extern "C" {
ZANTAPITableEntry* GetAPITable() {
  static std::vector<ZANTAPITableEntry> table;
  if (table.empty()) {
    for (const Row& row : kRows) table.push_back({"ZANT.HostTest", 1, row.method, row.handler});
    table.push_back({nullptr, 0, nullptr, nullptr});
  }
  return table.data();
}

ZANTAPICheckEntry* GetAPICheckTable() {
  static std::vector<ZANTAPICheckEntry> table;
  if (table.empty()) {
    for (const Row& row : kRows) {
      if (row.check != nullptr) table.push_back({"ZANT.HostTest", 1, row.method, row.check, 0, 0});
    }
    table.push_back({nullptr, 0, nullptr, nullptr, 0, 0});
  }
  return table.data();
}
}
