// The sync service's logger: levels from the level file, lines in the log file.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "harness.h"
#include "zant/logger.h"

namespace {

const char kLevelFile[] = "/var/packages/BrindlexPlyth/target/etc/syncfolder.debug";
const char kLogFile[] = "/var/packages/BrindlexPlyth/target/var/log/plyth.log";
const char kComponent[] = "default_component";

// levelFile null: no level file.
struct LevelCase { const char *d, *levelFile, *component; int level; bool logged; };
class LoggerLevel : public ::testing::TestWithParam<LevelCase> {
 protected:
  plyth_test::ApplianceRoot root_;
};

TEST_P(LoggerLevel, DecidesAndWrites) {
  const LevelCase& c = GetParam();
  if (c.levelFile != nullptr) root_.WriteFile(kLevelFile, c.levelFile);
  ASSERT_EQ(0, Logger::Initialize(0, "", kLevelFile, 50, 1));
  EXPECT_EQ(c.logged, Logger::IsNeedToLog(c.level, c.component)) << c.d;
  Logger::LogMsg(c.level, c.component, "msg %d", c.level);
  EXPECT_EQ(c.logged ? "msg " + std::to_string(c.level) + "\n" : "", root_.ReadFile(kLogFile))
      << c.d;
}

INSTANTIATE_TEST_SUITE_P(Rows, LoggerLevel, ::testing::ValuesIn(std::vector<LevelCase>{
  {"no file: errors", nullptr, kComponent, 3, true},
  {"no file: no warnings", nullptr, kComponent, 4, false},
  {"number", "default_component=7\n", kComponent, 7, true},
  {"capitals, blanks, junk", "# l\n\n default_component = DEBUG \r\nx\n", kComponent, 7, true},
  {"warning stops 5", "default_component=warning\n", kComponent, 5, false},
  {"star for the others", "*=6\n", "sync", 6, true},
  {"star does not lift a named component", "default_component=3\n*=7\n", kComponent, 4, false},
  {"level 0 still logs emergencies", "*=0\n", kComponent, 0, true},
  {"out of range ignored", "default_component=8\n", kComponent, 4, false},
  {"later line replaces", "default_component=7\ndefault_component=3\n", kComponent, 7, false},
}));

class LoggerFile : public ::testing::Test {
 protected:
  void TearDown() override { Logger::Initialize(0, "", "", 50, 1); }
  plyth_test::ApplianceRoot root_;
};

TEST_F(LoggerFile, WritesOneLineEachUnderTheRoot) {
  EXPECT_EQ(-1, Logger::Initialize(1, "", "", 50, 1)) << "only type 0 is known";
  root_.WriteFile(kLevelFile, "default_component=7\n");
  ASSERT_EQ(0, Logger::Initialize(0, "", kLevelFile, 50, 1));
  EXPECT_EQ(root_.Host(kLogFile), Logger::LogFilePath());
  Logger::LogMsg(3, kComponent, "(%5d:%5d) [ERROR] get(%d): cannot get file : link: %s.", 812,
                 41234, 565, "AbC");
  Logger::LogMsg(7, kComponent, "ends in a line feed\n");
  EXPECT_EQ("(  812:41234) [ERROR] get(565): cannot get file : link: AbC.\nends in a line feed\n",
            root_.ReadFile(kLogFile));
  ASSERT_EQ(0, Logger::Initialize(0, "other.log", "", 50, 1));
  EXPECT_EQ(root_.Host("/var/packages/BrindlexPlyth/target/var/log/other.log"),
            Logger::LogFilePath());
}

TEST_F(LoggerFile, CutsToTheNewestHalfPastTheLimit) {
  std::string full;
  for (int i = 100000; full.size() <= 1024 * 1024; ++i) full += "line " + std::to_string(i) + "\n";
  root_.WriteFile(kLogFile, full);
  ASSERT_EQ(0, Logger::Initialize(0, "", "", 1, 1));
  Logger::LogMsg(3, kComponent, "last");
  const std::string cut = root_.ReadFile(kLogFile);
  EXPECT_LE(cut.size(), (full.size() + 5) / 2);
  EXPECT_GT(cut.size(), (full.size() + 5) / 2 - 20);
  EXPECT_EQ(0u, cut.find("line 1")) << "starts at a whole line";
  EXPECT_EQ("last\n", cut.substr(cut.size() - 5));
  ASSERT_EQ(0, Logger::Initialize(0, "", "", 0, 1));
  Logger::LogMsg(3, kComponent, "kept");
  EXPECT_EQ(cut + "kept\n", root_.ReadFile(kLogFile)) << "size 0: no limit";
}

// What a message becomes in the file: one line, control bytes escaped, long
// ones cut. The message is passed as a "%s" argument.
struct LineCase { const char* d; std::string message; std::string line; };
class LoggerLine : public ::testing::TestWithParam<LineCase> {
 protected:
  plyth_test::ApplianceRoot root_;
};

TEST_P(LoggerLine, IsOneLine) {
  const LineCase& c = GetParam();
  ASSERT_EQ(0, Logger::Initialize(0, "", "", 50, 1));
  Logger::LogMsg(3, kComponent, "%s", c.message.c_str());
  EXPECT_EQ(c.line, root_.ReadFile(kLogFile)) << c.d;
}

const size_t kMax = Logger::kMaxLineBytes;
INSTANTIATE_TEST_SUITE_P(Rows, LoggerLine, ::testing::ValuesIn(std::vector<LineCase>{
  {.d = "forged line", .message = "link: a\r\n(  1:  2) [ERROR] x",
   .line = "link: a\\r\\n(  1:  2) [ERROR] x\n"},
  {.d = "closing line feed is the end", .message = "done\n", .line = "done\n"},
  {.d = "two closing line feeds", .message = "done\n\n", .line = "done\\n\n"},
  {.d = "tab, escape, DEL", .message = "a\tb\x1b[1m\x7f", .line = "a\\x09b\\x1b[1m\\x7f\n"},
  {.d = "UTF-8 and backslash kept", .message = "caf\xc3\xa9 \\n", .line = "caf\xc3\xa9 \\n\n"},
  {.d = "exactly the limit", .message = std::string(kMax, 'a'), .line = std::string(kMax, 'a') + "\n"},
  {.d = "one past the limit", .message = std::string(kMax + 1, 'a'),
   .line = std::string(kMax - 6, 'a') + " [cut]\n"},
  {.d = "7 KB cookie", .message = "cookie " + std::string(7000, 'c'),
   .line = "cookie " + std::string(kMax - 13, 'c') + " [cut]\n"},
  {.d = "cut before a whole escape", .message = std::string(kMax - 10, 'a') + "\x01\x01\x01",
   .line = std::string(kMax - 10, 'a') + "\\x01 [cut]\n"},
  {.d = "cut before a whole character",
   .message = std::string(kMax - 7, 'a') + "\xe2\x82\xac" + std::string(10, 'b'),
   .line = std::string(kMax - 7, 'a') + " [cut]\n"},
}));

TEST_F(LoggerFile, CreatesTheFileForOwnerAndGroupOnly) {
  ASSERT_EQ(0, Logger::Initialize(0, "", "", 1, 1));
  Logger::LogMsg(3, kComponent, "first");
  struct stat st;
  ASSERT_EQ(0, stat(root_.Host(kLogFile).c_str(), &st));
  EXPECT_EQ(0640u, st.st_mode & 07777);
  // The cut file replaces the log: it must not widen the mode.
  root_.WriteFile(kLogFile, std::string(1024 * 1024 + 1, '\n'));
  ASSERT_EQ(0, chmod(root_.Host(kLogFile).c_str(), 0644));
  Logger::LogMsg(3, kComponent, "after the cut");
  ASSERT_EQ(0, stat(root_.Host(kLogFile).c_str(), &st));
  EXPECT_LT(st.st_size, 1024 * 1024) << "was cut";
  EXPECT_EQ(0640u, st.st_mode & 07777);
}

TEST_F(LoggerFile, SeesAChangedLevelFile) {
  root_.WriteFile(kLevelFile, "default_component=3\n");
  ASSERT_EQ(0, Logger::Initialize(0, "", kLevelFile, 50, 1));
  EXPECT_FALSE(Logger::IsNeedToLog(7, kComponent));
  root_.WriteFile(kLevelFile, "default_component=7\nother=1\n");
  ASSERT_EQ(0, Logger::Initialize(0, "", kLevelFile, 50, 1));
  EXPECT_TRUE(Logger::IsNeedToLog(7, kComponent));
  root_.Remove(kLevelFile);
  ASSERT_EQ(0, Logger::Initialize(0, "", kLevelFile, 50, 1));
  EXPECT_FALSE(Logger::IsNeedToLog(7, kComponent));
}

}  // namespace
