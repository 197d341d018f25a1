// The sync service's logger: levels from the level file, lines in the log file.
#include <gtest/gtest.h>

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

}  // namespace
