// ZANT.HostTest.so: a web-API module that exercises the framework: raw
// output, redirects, failing checks, a crash, a hang, and echoes of what the
// framework handed over. Used by the black-box and integration tests.
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include "zant/webapi.h"
#include "zant/webman.h"

namespace {

const char kAPI[] = "ZANT.HostTest";

Json::Value EnvOrNull(const char* name) {
  const char* value = getenv(name);
  return value != nullptr ? Json::Value(value) : Json::Value();
}

void EchoFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  response->SetSuccess(request->GetParams());
}

void EchoV2Func(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  Json::Value data(Json::objectValue);
  data["version"] = request->GetVersion();
  response->SetSuccess(data);
}

void WhoAmIFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  Json::Value data(Json::objectValue);
  data["user"] = request->GetLoginUserName();
  data["uid"] = request->GetLoginUID();
  data["auth"] = request->GetAuthResult();
  data["token"] = request->GetSessionToken();
  data["lang"] = request->GetUILanguage();
  data["USERNAME"] = EnvOrNull("USERNAME");
  response->SetSuccess(data);
}

// {"names": [...]}: each variable as the process environment and as the
// request's server variables have it.
void EnvFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  Json::Value data(Json::objectValue);
  for (const Json::Value& name : request->GetParamRef("names", Json::Value(Json::arrayValue))) {
    const std::string text = name.asString();
    data["getenv"][text] = EnvOrNull(text.c_str());
    data["server"][text] = request->GetEnv(text, Json::Value());
  }
  char cwd[4096];
  data["cwd"] = getcwd(cwd, sizeof(cwd)) != nullptr ? cwd : "";
  data["url"]["proto"] = request->GetURLProto("");
  data["url"]["host"] = request->GetURLHost("");
  data["url"]["port"] = request->GetURLPort(0);
  data["url"]["path"] = request->GetURLPath("");
  response->SetSuccess(data);
}

// The desktop session library's view of the request.
void WebManFunc(ZANT::APIRequest*, ZANT::APIResponse* response) {
  WebMan webman(true);
  Json::Value data(Json::objectValue);
  data["authorized"] = webman.CheckAuthorized(31, CGI_POSITION_WEBAPI, false);
  data["token"] = webman.GetZantToken(false);
  response->SetSuccess(data);
}

void CookiesFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  Json::Value data(Json::objectValue);
  for (const auto& cookie : request->GetCookies()) data[cookie.first] = cookie.second;
  response->SetSuccess(data);
}

void RedirectFunc(ZANT::APIRequest*, ZANT::APIResponse* response) {
  response->SetSuccess();
  response->SetHeader("Location", "http://example.test/next?a=1");
}

// A raw cookie line with the output left on, then a redirect.
void CookieRedirectFunc(ZANT::APIRequest*, ZANT::APIResponse* response) {
  printf("Set-Cookie: a=b; path=/\r\n");
  response->SetSuccess();
  response->SetHeader("Location", "http://example.test/landing");
}

// The output switched off: every byte is the handler's, written through
// stdio, iostreams and the file descriptor alike.
void RawFunc(ZANT::APIRequest*, ZANT::APIResponse* response) {
  printf("Set-Cookie: raw=1; path=/\r\n");
  response->SetEnableOutput(false);
  printf("Content-Type:text/plain\r\n\r\n");
  fflush(stdout);
  ssize_t ignored = write(STDOUT_FILENO, "A", 1);
  (void)ignored;
  printf("B");
  std::cout << "C";
}

void ErrorFunc(ZANT::APIRequest*, ZANT::APIResponse* response) { response->SetError(117); }

void NoAnswerFunc(ZANT::APIRequest*, ZANT::APIResponse*) {}

void SleepFunc(ZANT::APIRequest* request, ZANT::APIResponse* response) {
  const int ms = request->GetParamRef("ms", Json::Value(0)).asInt();
  struct timespec left = {ms / 1000, (ms % 1000) * 1000000L};
  while (nanosleep(&left, &left) != 0) {
  }
  Json::Value data(Json::objectValue);
  data["slept"] = ms;
  response->SetSuccess(data);
}

// abort(), not a bad pointer: sanitizer builds turn SIGSEGV into an exit.
void CrashFunc(ZANT::APIRequest*, ZANT::APIResponse*) { abort(); }

// Leaves the process in another directory; the server must put it back.
void ChdirFunc(ZANT::APIRequest*, ZANT::APIResponse* response) {
  Json::Value data(Json::objectValue);
  data["changed"] = chdir("/tmp") == 0;
  setenv("CONTENT_TYPE", "left/over", 1);
  response->SetSuccess(data);
}

int Allow(ZANT::APIRequest*) { return 1; }
int Deny(ZANT::APIRequest*) { return 0; }
int AllowTwo(ZANT::APIRequest*) { return 2; }

ZANTAPITableEntry gTable[] = {
    {kAPI, 1, "echo", EchoFunc},
    {kAPI, 2, "echo", EchoV2Func},
    {kAPI, 1, "whoami", WhoAmIFunc},
    {kAPI, 1, "env", EnvFunc},
    {kAPI, 1, "cookies", CookiesFunc},
    {kAPI, 1, "webman", WebManFunc},
    {kAPI, 1, "redirect", RedirectFunc},
    {kAPI, 1, "cookie_redirect", CookieRedirectFunc},
    {kAPI, 1, "raw", RawFunc},
    {kAPI, 1, "error", ErrorFunc},
    {kAPI, 1, "noanswer", NoAnswerFunc},
    {kAPI, 1, "sleep", SleepFunc},
    {kAPI, 1, "crash", CrashFunc},
    {kAPI, 1, "chdir", ChdirFunc},
    {kAPI, 1, "denied", EchoFunc},
    {kAPI, 1, "two", EchoFunc},
    {kAPI, 1, "nocheck", EchoFunc},
    {nullptr, 0, nullptr, nullptr},
};

ZANTAPICheckEntry gCheckTable[] = {
    {kAPI, 1, "echo", Allow, 0, 0},
    {kAPI, 2, "echo", Allow, 0, 0},
    {kAPI, 1, "whoami", Allow, 0, 0},
    {kAPI, 1, "env", Allow, 0, 0},
    {kAPI, 1, "cookies", Allow, 0, 0},
    {kAPI, 1, "webman", Allow, 0, 0},
    {kAPI, 1, "redirect", Allow, 0, 0},
    {kAPI, 1, "cookie_redirect", Allow, 0, 0},
    {kAPI, 1, "raw", Allow, 0, 0},
    {kAPI, 1, "error", Allow, 0, 0},
    {kAPI, 1, "noanswer", Allow, 0, 0},
    {kAPI, 1, "sleep", Allow, 0, 0},
    {kAPI, 1, "crash", Allow, 0, 0},
    {kAPI, 1, "chdir", Allow, 0, 0},
    {kAPI, 1, "denied", Deny, 0, 0},
    {kAPI, 1, "two", AllowTwo, 0, 0},
    {nullptr, 0, nullptr, nullptr, 0, 0},
};

}  // namespace

extern "C" {
ZANTAPITableEntry* GetAPITable() { return gTable; }
ZANTAPICheckEntry* GetAPICheckTable() { return gCheckTable; }
}
