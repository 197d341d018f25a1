// The sync service's logger: levels from the level file, lines in the log file.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "harness.h"
#include "zant/logger.h"

namespace {

const char kLevelFile[] = "/var/packages/BrindlexPlyth/target/etc/syncfolder.debug";
const char kLogFile[] = "/var/packages/BrindlexPlyth/target/var/log/plyth.log";
const char kComponent[] = "default_component";

class LoggerTest : public ::testing::Test {
 protected:
  void TearDown() override { Logger::Initialize(0, "", "", 50, 1); }
  mode_t Mode() const {
    struct stat st;
    EXPECT_EQ(0, stat(root_.Host(kLogFile).c_str(), &st));
    return st.st_mode & 07777;
  }
  plyth_test::ApplianceRoot root_;
};

TEST_F(LoggerTest, LevelFileDecides) {
  // levelFile null: no level file.
  const struct Row { const char *d, *levelFile, *component; int level; bool logged; } rows[] = {
      {"no file: errors", nullptr, kComponent, 3, true},
      {"number", "default_component=7\n", kComponent, 7, true},
      {"capitals, blanks, junk", "# l\n\n default_component = DEBUG \r\nx\n", kComponent, 7, true},
      {"removed file: no warnings", nullptr, kComponent, 4, false},
      {"warning stops 5", "default_component=warning\n", kComponent, 5, false},
      {"star for the others", "*=6\n", "sync", 6, true},
      {"star does not lift a named component", "default_component=3\n*=7\n", kComponent, 4, false},
      {"level 0 still logs emergencies", "*=0\n", kComponent, 0, true},
      {"out of range ignored", "default_component=8\n", kComponent, 4, false},
      {"later line replaces", "default_component=7\ndefault_component=3\n", kComponent, 7, false},
  };
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

TEST_F(LoggerTest, CutsToTheNewestHalfPastTheLimit) {
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
  EXPECT_EQ(0640u, Mode());
  ASSERT_EQ(0, Logger::Initialize(0, "", "", 0, 1));
  Logger::LogMsg(3, kComponent, "kept");
  EXPECT_EQ(cut + "kept\n", root_.ReadFile(kLogFile)) << "size 0: no limit";
}

// What a message becomes in the file: one line, control bytes escaped, long
// ones cut. The message is passed as a "%s" argument. (Formats with their
// arguments are pinned by the module's log lines.)
TEST_F(LoggerTest, MessageIsOneLine) {
  const size_t kMax = Logger::kMaxLineBytes;
  const struct Row { const char* d; std::string message; std::string line; } rows[] = {
      {"forged line", "link: a\r\n(  1:  2) [ERROR] x", "link: a\\r\\n(  1:  2) [ERROR] x\n"},
      {"closing line feed is the end", "done\n", "done\n"},
      {"two closing line feeds", "done\n\n", "done\\n\n"},
      {"tab, escape, DEL", "a\tb\x1b[1m\x7f", "a\\x09b\\x1b[1m\\x7f\n"},
      {"UTF-8 and backslash kept", "caf\xc3\xa9 \\n", "caf\xc3\xa9 \\n\n"},
      {"exactly the limit", std::string(kMax, 'a'), std::string(kMax, 'a') + "\n"},
      {"one past the limit", std::string(kMax + 1, 'a'), std::string(kMax - 6, 'a') + " [cut]\n"},
      {"cut before a whole escape", std::string(kMax - 10, 'a') + "\x01\x01\x01",
       std::string(kMax - 10, 'a') + "\\x01 [cut]\n"},
      {"cut before a whole character", std::string(kMax - 7, 'a') + "\xe2\x82\xac" + std::string(10, 'b'),
       std::string(kMax - 7, 'a') + " [cut]\n"},
  };
  ASSERT_EQ(0, Logger::Initialize(0, "", "", 50, 1));
  for (const Row& row : rows) {
    root_.Remove(kLogFile);
    Logger::LogMsg(3, kComponent, "%s", row.message.c_str());
    EXPECT_EQ(row.line, root_.ReadFile(kLogFile)) << row.d;
  }
  EXPECT_EQ(0640u, Mode()) << "a new file is for owner and group only";
}

}  // namespace
