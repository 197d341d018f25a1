// Small helpers shared by the module's unit tests.
#pragma once

#include <stdlib.h>
#include <utime.h>

#include <initializer_list>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <json/json.h>

#include "harness.h"
#include "zant/json_util.h"

namespace plyth_test {
inline void PrintTo(const SyslogLine& line, std::ostream* os) { *os << line.priority << " " << line.text; }
}  // namespace plyth_test

namespace {

using plyth_test::ApplianceRoot;
using plyth_test::BodyOf;
using plyth_test::FakeAPI;
using plyth_test::FakeIdentity;
using plyth_test::HandlerRun;
using plyth_test::Parse;
using plyth_test::SyslogCapture;
using plyth_test::SyslogLine;
using Lines = std::vector<SyslogLine>;
using Strings = std::vector<std::string>;

// Table rows print as their description.
template <typename Row>
auto operator<<(std::ostream& os, const Row& row) -> decltype(row.description, os) { return os << row.description; }


inline std::string Text(const Json::Value& value) { return ZANT::JsonToString(value); }

inline SyslogLine Logged(int priority, const std::string& source, int line, const std::string& text) {
  return {priority, source + ":" + std::to_string(line) + " " + text};
}

// What a process with other ids logs around one critical section: both ids
// raised, then the uid taken back through root.
inline Lines Switched(const std::string& source, int line) {
  return {Logged(38, source, line, "WARNING: setresgid(-1, 0, -1)"),
          Logged(38, source, line, "WARNING: setresuid(-1, 0, -1)"),
          Logged(38, source, line, "WARNING: setresuid(-1, 0, -1)")};
}

inline void SetMTime(const std::string& hostPath, time_t when) {
  struct utimbuf times = {when, when};
  ASSERT_EQ(utime(hostPath.c_str(), &times), 0) << hostPath;
}

// The relay service's connections table: null none, "DIR" unreadable.
inline void RelayConnections(const ApplianceRoot& root, const char* table) {
  const char kPath[] = "/usr/zant/etc/relay/connections";
  if (table != nullptr && std::string(table) == "DIR") root.MakeDir(kPath);
  else if (table != nullptr) root.WriteFile(kPath, table);
}

// "@KEY@{{KEY}}@/KEY@" per key, so that each filled value can be read back whole.
inline std::string MarkedTemplate(std::initializer_list<const char*> keys) {
  std::string page;
  for (const char* key : keys) page += std::string("@") + key + "@{{" + key + "}}@/" + key + "@";
  return page;
}

inline std::string Section(const std::string& body, const std::string& key) {
  const std::string open = "@" + key + "@";
  size_t start = body.find(open), end = body.find("@/" + key + "@");
  if (start == std::string::npos || end == std::string::npos) return "<missing>";
  return body.substr(start + open.size(), end - start - open.size());
}

// Link-service results.
inline Json::Value Failed(int code) { return FakeAPI::Failure(code); }
inline Json::Value Unlocked() { return FakeAPI::Success(Parse(R"({"sharing_token":"NEW"})")); }
// Who asks the unlock, and with what.
const char kUnlockCall[] = R"(anonymous{"password":"","sharing_link":"S1"})";
struct Record {
  std::string name = "a.txt", displayPath = "";
  bool canRead = true, canPreview = true, removed = false;
};
inline Json::Value Found(const Record& record) {
  Json::Value file = Parse(R"({"type":"file","file_id":"F1","permanent_link":"L1"})");
  file["name"] = record.name;
  file["display_path"] = record.displayPath;
  file["capabilities"]["can_read"] = record.canRead;
  file["capabilities"]["can_preview"] = record.canPreview;
  if (record.removed) file["removed"] = true;
  return FakeAPI::Success(file);
}

// Who asks, and the USERNAME the web server hands on (null: unset).
enum class SignIn { kAnonymous, kAlice, kWebServer, kNone };
struct Visitor { SignIn signIn = SignIn::kAnonymous; const char* username = nullptr; };

// A request of the module's methods, with the link service, texts and users.
class LinkTest : public ::testing::Test {
 protected:
  LinkTest() {
    root_.WriteFile("/var/packages/BrindlexPlyth/target/plyth/texts/enu/strings",
                    "[action]\ndownload = \"DownloadBtn\"\n");
    root_.WriteFile("/usr/zant/etc/users",
                    "bob:1030:100:Bob:/home/bob::\ncarol:1031:100:Carol:/home/carol:disabled:\n");
    request_.SetSessionToken("TOK");
    unsetenv("USERNAME");
  }
  ~LinkTest() override { unsetenv("USERNAME"); }

  void SetVisitor(const Visitor& visitor) {
    // Anonymous is the request as it comes: no sign-in result at all.
    if (visitor.signIn == SignIn::kAlice) request_.SetLogin("alice", 1026, ZANT::kAuthUser);
    if (visitor.signIn == SignIn::kWebServer) request_.SetLogin("", -1, ZANT::kAuthWebServer);
    if (visitor.signIn == SignIn::kNone) request_.SetLogin("", -1, ZANT::kAuthNone);
    if (visitor.username != nullptr) setenv("USERNAME", visitor.username, 1);
  }

  ApplianceRoot root_;
  FakeAPI files_{"ZANT.BrindlexPlyth.Files", 1, "get"};
  FakeAPI auth_{"ZANT.BrindlexPlyth.AdvanceSharing.Public", 1, "auth"};
  ZANT::APIRequest request_;
};

}  // namespace
