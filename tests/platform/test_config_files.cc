// Files the platform reads: key-value files (and the relay suffixes and
// security headers read through them), the relay connections table, UI
// texts, JSON files, the root they all live under, and the per-process cache
// they are read through (a change on disk is seen at the next use, derived
// values are made once per content). Then the file it writes: the sync
// service's logger, its levels from the level file and its lines.
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>

#include <cstdlib>
#include <string>

#include "harness.h"
#include "zant/appliance.h"
#include "zant/file_cache.h"
#include "zant/json_util.h"
#include "zant/logger.h"
#include "zant/nxo.h"
#include "zant/qrt.h"
#include "zant/relay.h"
#include "zant/vlibc.h"

namespace {

using plyth_test::Parse;

const char kConf[] = "/etc/test.conf";


class RootTable : public ::testing::Test {
 protected:
  plyth_test::ApplianceRoot root_;
};
using KeyValue = RootTable;

TEST_F(KeyValue, ReadsKeyACutsToBufferAndReportsFileErrors) {
  const struct Row { const char* d; const char* content; int expectedReturn; const char* value; } rows[] = {
      {"unquoted, trimmed", "a=  v w \t\n", 4, "v w"},
      {"spaces around =, indented", "  a = \"x=y\"\n", 4, "x=y"},
      {"first duplicate wins", "a=\"1\"\na=\"2\"\n", 2, "1"},
      {"comments, junk, CR LF", "#a=\"c\"\r\njunk\r\n\r\na=\"e\"\r\n", 2, "e"},
      {"text after quote, no final line end", "a=\"v\" # note", 2, "v"},
      {"unterminated quote", "a=\"abc\n", 4, "abc"},
      {"other keys only", "ab=\"1\"\nA=\"2\"\n", 0, ""}};
  for (const Row& row : rows) {
    root_.WriteFile(kConf, row.content);
    char buffer[64] = "";
    EXPECT_EQ(row.expectedReturn, VLIBCFileGetKeyValue(kConf, "a", buffer, sizeof(buffer), 0)) << row.d;
    EXPECT_STREQ(row.value, buffer) << row.d;
  }
  root_.WriteFile(kConf, "a=\"abcdef\"\n");
  char buffer[16] = "";
  EXPECT_EQ(4, VLIBCFileGetKeyValue(kConf, "a", buffer, 4, 0));
  EXPECT_STREQ("abc", buffer);
  EXPECT_EQ(1, VLIBCFileCheckKeyValue(kConf, "a", "abcdef", 0));
  EXPECT_EQ(0, VLIBCFileCheckKeyValue(kConf, "a", "abcde", 0));
  EXPECT_EQ(-1, VLIBCFileGetKeyValue("/etc/missing.conf", "a", buffer, sizeof(buffer), 0));
  EXPECT_EQ(VLIBC_ERR_FILE_OPEN, VLIBCErrGet());
}

std::string Suffixes() { return ZANT::RelayGlobalSuffix() + " " + ZANT::RelayChinaSuffix(); }
std::string Headers() {
  ZANT::NXO::SecurityOptions options(nullptr);
  return options.GetXFrameOption() + " | " + options.GetCSPHeader();
}

// Settings read through key-value files, with their defaults.
TEST_F(RootTable, SettingReadOrDefault) {
  const char kRelayConf[] = "/usr/zant/etc/relay/relay.conf";
  const char kSecurityConf[] = "/usr/zant/etc/security.conf";
  const std::string kSuffixes = ".skyvane-zant.io .skyvane-zant.cn";
  const std::string kCSP = "default-src 'self'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
      "object-src 'none'; base-uri 'self'; frame-ancestors 'self'";
  const struct Row { const char *file, *content; std::string (*read)(); std::string expected; } rows[] = {
      {kRelayConf, "global_suffix=.example-abc.net\nchina_suffix=.example-abc.org", Suffixes,
       ".example-abc.net .example-abc.org"},
      {kRelayConf, "global_suffix=.short.net\nchina_suffix=xexample-abc.org", Suffixes, kSuffixes},
      {kRelayConf, "global_suffix=\".Example-ABC.net\"", Suffixes, ".example-abc.net .skyvane-zant.cn"},
      {kSecurityConf, "x_frame_options=\"DENY\"\ncontent_security_policy=\"default-src 'none'\"\n", Headers,
       "DENY | default-src 'none'"},
      {kSecurityConf, "x_frame_options=\"\"\ncontent_security_policy=", Headers, "SAMEORIGIN | " + kCSP}};
  for (const Row& row : rows) {
    row.content ? root_.WriteFile(row.file, row.content) : root_.Remove(row.file);
    EXPECT_EQ(row.expected, row.read()) << row.file << " " << (row.content ? row.content : "(none)");
  }
}

TEST_F(RootTable, RelayClassifies) {
  int type = -7;
  EXPECT_EQ(0, ZANTRelayServiceGetConnectionTypeByAddr("a", "1", "b", "2", &type));
  EXPECT_EQ(ZANT_RELAY_CONN_DIRECT, type) << "no table: direct";
  root_.WriteFile("/usr/zant/etc/relay/connections",
                  "# serverAddr serverPort remoteAddr remotePort type\n"
                  "10.0.0.5 5001 127.0.0.1 * relay\n"
                  "10.0.0.5 5001 * * 64\n"
                  "10.0.0.5 *    10.17.* 4000 tunnel\n"
                  "10.0.0.9 80 1.2.3.4 1 bogus\n"
                  "10.0.0.9 80 1.2.3.4\n"
                  "   10.0.0.9\t*\t*\t*\t32\n");
  const struct Row { const char *d, *serverAddr, *serverPort, *remoteAddr, *remotePort; int type; } rows[] = {
      {"first match wins", "10.0.0.5", "5001", "127.0.0.1", "9", 32},
      {"wildcard remote", "10.0.0.5", "5001", "8.8.8.8", "1", 64},
      {"prefix wildcard", "10.0.0.5", "5000", "10.17.3.4", "4000", 64},
      {"prefix not matched", "10.0.0.5", "5000", "10.18.3.4", "4000", 16},
      {"malformed skipped, tabs", "10.0.0.9", "80", "1.2.3.4", "1", 32},
      {"whole address only", "10.0.0.55", "5001", "127.0.0.1", "9", 16}};
  for (const Row& row : rows) {
    type = -7;
    EXPECT_EQ(0, ZANTRelayServiceGetConnectionTypeByAddr(row.serverAddr, row.serverPort, row.remoteAddr,
                                                         row.remotePort, &type));
    EXPECT_EQ(row.type, type) << row.d;
  }
}

// A JSON file that reads and a missing one are pinned by the init tests' date formats.
TEST_F(RootTable, TextsParseMalformedJsonIsRefused) {
  const char kTexts[] = "/var/packages/X/target/texts/enu";
  EXPECT_EQ(Json::Value(Json::objectValue), ZANT::QRT::LocalizedStringParser::ParseTexts("/no/dir"));
  const struct Row { const char* d; const char* content; const char* expected; } rows[] = {
      {"sections, reopened merge", "[c]\nok = \"OK\"\nx=\"1\"\n[e]\n[c]\nx = \"2\"\n",
       R"({"c":{"ok":"OK","x":"2"},"e":{}})"},
      {"escapes", "[s]\nk = \"say \\\"hi\\\"\\\\\\n\\t C:\\dir = # \"\n",
       R"({"s":{"k":"say \"hi\"\\\n\t C:\\dir = # "}})"},
      {"BOM, comments, blank lines, CR LF", "\xEF\xBB\xBF[s]\r\n# n\r\n\r\n; o\r\n  # k = \"x\"\r\nk = \"v\"\r\n",
       R"({"s":{"k":"v"}})"},
      {"malformed lines skipped", "k = \"v\"\n[s]\nk = v\nj = \"v\" x\nl \"v\"\nm = \"w\n[]\nn = \"1\"\n",
       R"({"s":{}})"}};
  for (const Row& row : rows) {
    root_.WriteFile(std::string(kTexts) + "/strings", row.content);
    EXPECT_EQ(Parse(row.expected), ZANT::QRT::LocalizedStringParser::ParseTexts(kTexts)) << row.d;
  }
  root_.WriteFile("/bad.json", "{\"date_format\":");
  Json::Value out;
  EXPECT_FALSE(ZANT::JsonFromFile(root_.Host("/bad.json"), out));
}

TEST_F(RootTable, RootPlacesPath) {
  const struct Row { const char* root; std::string path, expected, webRoot; } rows[] = {  // root null: unset
      {nullptr, "/etc/zantinfo.conf", "/etc/zantinfo.conf", "/usr/zant/zantman"},
      {"/tmp/r//", "/etc/x", "/tmp/r/etc/x", "/tmp/r/usr/zant/zantman"},
      {"/", "/etc/x", "/etc/x", "/usr/zant/zantman"},
      {"/tmp/r", "etc/x", "etc/x", "/tmp/r/usr/zant/zantman"}};
  for (const Row& row : rows) {
    row.root ? setenv("ZANT_ROOT", row.root, 1) : unsetenv("ZANT_ROOT");
    EXPECT_EQ(row.expected, ZANT::RootPath(row.path)) << (row.root ? row.root : "unset");
    EXPECT_EQ(row.webRoot, ZANT::WebRoot());
  }
}

const char kFile[] = "/etc/cached.conf";

class FileCacheTest : public ::testing::Test {
 protected:
  std::string Path() const { return root_.Host(kFile); }
  std::string Bytes() const { return ZANT::FileCache::Read(Path())->bytes; }
  plyth_test::ApplianceRoot root_;
};

TEST_F(FileCacheTest, SeesEveryChangeMakesDerivedValuesOncePerContentAndKeepsTheServersInterval) {
  EXPECT_FALSE(ZANT::FileCache::Read(Path())->opened) << "missing";
  root_.WriteFile(kFile, "one");
  EXPECT_EQ("one", Bytes()) << "appeared";
  root_.WriteFile(kFile, "three");
  EXPECT_EQ("three", Bytes()) << "rewritten in place, other size";
  root_.WriteFile(kFile + std::string(".new"), "fresh");
  ASSERT_EQ(0, rename((Path() + ".new").c_str(), Path().c_str()));
  EXPECT_EQ("fresh", Bytes()) << "replaced by a rename";
  root_.Remove(kFile);
  EXPECT_FALSE(ZANT::FileCache::Read(Path())->opened) << "removed";

  int made = 0;
  const auto make = [&made](const ZANT::FileCache::Content& c) { return std::to_string(++made) + ":" + c.bytes; };
  const auto derived = [&] { return *ZANT::FileCache::Derived<std::string>(Path(), "counted", make); };
  root_.WriteFile(kFile, "abc");
  EXPECT_EQ("1:abc", derived());
  EXPECT_EQ("1:abc", derived()) << "made once per content";
  root_.WriteFile(kFile, "abcd");
  EXPECT_EQ("2:abcd", derived());

  ZANT::FileCache::SetRevalidateSeconds(3600);
  EXPECT_EQ("abcd", Bytes());
  root_.WriteFile(kFile, "newer");
  EXPECT_EQ("abcd", Bytes()) << "within the interval the disk is not looked at";
  ZANT::FileCache::SetRevalidateSeconds(0);
  root_.WriteFile(kFile, "newest");
  EXPECT_EQ("newest", Bytes()) << "0: every use looks";
}

const char kLevelFile[] = "/var/packages/BrindlexPlyth/target/etc/syncfolder.debug";
const char kLogFile[] = "/var/packages/BrindlexPlyth/target/var/log/plyth.log";
const char kComponent[] = "default_component";

class LoggerTest : public ::testing::Test {
 protected:
  void TearDown() override { Logger::Initialize(0, "", "", 50, 1); }
  plyth_test::ApplianceRoot root_;
};

TEST_F(LoggerTest, LevelFileDecides) {
  // levelFile null: no level file.
  const struct Row { const char *d, *levelFile, *component; int level; bool logged; } rows[] = {
      {"no file: errors", nullptr, kComponent, 3, true},
      {"capitals, blanks, junk", "# l\n\n default_component = DEBUG \r\nx\n", kComponent, 7, true},
      {"removed file: no warnings", nullptr, kComponent, 4, false},
      {"warning stops 5", "default_component=warning\n", kComponent, 5, false},
      {"star for the others", "*=6\n", "sync", 6, true},
      {"star does not lift a named component", "default_component=3\n*=7\n", kComponent, 4, false},
      {"level 0 still logs emergencies", "*=0\n", kComponent, 0, true},
      {"out of range ignored", "default_component=8\n", kComponent, 4, false},
      {"later line replaces", "default_component=7\ndefault_component=3\n", kComponent, 7, false}};
  for (const Row& row : rows) {
    // Each row's file is read anew by Initialize, a changed one and a removed one alike.
    row.levelFile != nullptr ? root_.WriteFile(kLevelFile, row.levelFile) : root_.Remove(kLevelFile);
    root_.Remove(kLogFile);
    ASSERT_EQ(0, Logger::Initialize(0, "", kLevelFile, 50, 1));
    EXPECT_EQ(row.logged, Logger::IsNeedToLog(row.level, row.component)) << row.d;
    Logger::LogMsg(row.level, row.component, "msg %d", row.level);
    EXPECT_EQ(row.logged ? "msg " + std::to_string(row.level) + "\n" : "", root_.ReadFile(kLogFile)) << row.d;
  }
}

// What a message becomes in the file: one line, control bytes escaped, long
// ones cut. The message is passed as a "%s" argument. (Formats with their
// arguments are pinned by the module's log lines.) Then the file past its
// size limit.
TEST_F(LoggerTest, MessageIsOneLineAndTheFileIsCutToTheNewestHalfPastTheLimit) {
  const size_t kMax = Logger::kMaxLineBytes;
  const struct Row { const char* d; std::string message; std::string line; } rows[] = {
      {"forged line", "link: a\r\n(  1:  2) [ERROR] x", "link: a\\r\\n(  1:  2) [ERROR] x\n"},
      {"two closing line feeds", "done\n\n", "done\\n\n"},
      {"tab, escape, DEL", "a\tb\x1b[1m\x7f", "a\\x09b\\x1b[1m\\x7f\n"},
      {"UTF-8 and backslash kept", "caf\xc3\xa9 \\n", "caf\xc3\xa9 \\n\n"},
      {"exactly the limit", std::string(kMax, 'a'), std::string(kMax, 'a') + "\n"},
      {"one past the limit", std::string(kMax + 1, 'a'), std::string(kMax - 6, 'a') + " [cut]\n"},
      {"cut before a whole escape", std::string(kMax - 10, 'a') + "\x01\x01\x01",
       std::string(kMax - 10, 'a') + "\\x01 [cut]\n"},
      {"cut before a whole character", std::string(kMax - 7, 'a') + "\xe2\x82\xac" + std::string(10, 'b'),
       std::string(kMax - 7, 'a') + " [cut]\n"}};
  ASSERT_EQ(0, Logger::Initialize(0, "", "", 50, 1));
  for (const Row& row : rows) {
    root_.Remove(kLogFile);
    Logger::LogMsg(3, kComponent, "%s", row.message.c_str());
    EXPECT_EQ(row.line, root_.ReadFile(kLogFile)) << row.d;
  }
  struct stat st;
  ASSERT_EQ(0, stat(root_.Host(kLogFile).c_str(), &st));
  EXPECT_EQ(0640u, st.st_mode & 07777) << "a new file is for owner and group only";

  std::string full;
  for (int i = 100000; full.size() <= 1024 * 1024; ++i) full += "line " + std::to_string(i) + "\n";
  root_.WriteFile(kLogFile, full);
  // The cut file replaces the log: it must not widen the mode.
  ASSERT_EQ(0, chmod(root_.Host(kLogFile).c_str(), 0644));
  ASSERT_EQ(0, Logger::Initialize(0, "", "", 1, 1));
  Logger::LogMsg(3, kComponent, "last");
  const std::string cut = root_.ReadFile(kLogFile);
  EXPECT_LE(cut.size(), (full.size() + 5) / 2);
  EXPECT_GT(cut.size(), (full.size() + 5) / 2 - 20);
  EXPECT_EQ(0u, cut.find("line 1")) << "starts at a whole line";
  EXPECT_EQ("last\n", cut.substr(cut.size() - 5));
  ASSERT_EQ(0, stat(root_.Host(kLogFile).c_str(), &st));
  EXPECT_EQ(0640u, st.st_mode & 07777) << "the cut file kept the mode";
  ASSERT_EQ(0, Logger::Initialize(0, "", "", 0, 1));
  Logger::LogMsg(3, kComponent, "kept");
  EXPECT_EQ(cut + "kept\n", root_.ReadFile(kLogFile)) << "size 0: no limit";
}

}  // namespace
