// The sync service's logger: levels from the level file, lines in the log file.
#include <gtest/gtest.h>

#include <string>

#include "temp_root.h"
#include "zant/logger.h"

namespace {

const char kLevelFile[] = "/var/packages/BrindlexPlyth/target/etc/syncfolder.debug";
const char kLogFile[] = "/var/packages/BrindlexPlyth/target/var/log/plyth.log";
const char kComponent[] = "default_component";

struct LevelCase {
  const char* description;
  const char* levelFile;  // null: no file
  const char* component;
  int level;
  bool logged;
};

class LoggerLevelTest : public ::testing::TestWithParam<LevelCase> {};

TEST_P(LoggerLevelTest, DecidesAndWrites) {
  const LevelCase& c = GetParam();
  platform_test::TempRoot root;
  if (c.levelFile != nullptr) root.WriteFile(kLevelFile, c.levelFile);
  ASSERT_EQ(0, Logger::Initialize(0, "", kLevelFile, 50, 1));
  EXPECT_EQ(c.logged, Logger::IsNeedToLog(c.level, c.component));
  Logger::LogMsg(c.level, c.component, "msg %d", c.level);
  EXPECT_EQ(c.logged ? "msg " + std::to_string(c.level) + "\n" : "", root.ReadFile(kLogFile));
}

INSTANTIATE_TEST_SUITE_P(
    Table, LoggerLevelTest,
    ::testing::Values(
        LevelCase{"no file: errors", nullptr, kComponent, 3, true},
        LevelCase{"no file: no warnings", nullptr, kComponent, 4, false},
        LevelCase{"number", "default_component=7\n", kComponent, 7, true},
        LevelCase{"name", "default_component=debug\n", kComponent, 7, true},
        LevelCase{"name in capitals", "default_component=DEBUG\n", kComponent, 7, true},
        LevelCase{"warning lets 4 through", "default_component=warning\n", kComponent, 4, true},
        LevelCase{"warning stops 5", "default_component=warning\n", kComponent, 5, false},
        LevelCase{"blanks, comments, junk lines",
                  "# levels\n\n  default_component = info  \r\nnonsense\n", kComponent, 6, true},
        LevelCase{"star for the others", "*=6\n", "sync", 6, true},
        LevelCase{"star does not lift a named component", "default_component=3\n*=7\n", kComponent,
                  4, false},
        LevelCase{"named component below star", "other=7\n*=0\n", kComponent, 3, false},
        LevelCase{"level 0 still logs emergencies", "*=0\n", kComponent, 0, true},
        LevelCase{"out-of-range level ignored", "default_component=8\n", kComponent, 4, false},
        LevelCase{"unknown name ignored", "default_component=loud\n", kComponent, 3, true},
        LevelCase{"later line replaces", "default_component=7\ndefault_component=3\n", kComponent,
                  7, false}),
    [](const ::testing::TestParamInfo<LevelCase>& info) { return "row" + std::to_string(info.index); });

TEST(LoggerLineTest, WritesTheFormattedMessageOneLineEach) {
  platform_test::TempRoot root;
  root.WriteFile(kLevelFile, "default_component=7\n");
  ASSERT_EQ(0, Logger::Initialize(0, "", kLevelFile, 50, 1));
  Logger::LogMsg(3, kComponent,
                 "(%5d:%5d) [ERROR] get(%d): cannot get file : link: %s, sharing_token: %s.", 812,
                 41234, 565, "AbC", "tok");
  Logger::LogMsg(7, kComponent, "(%5d:%5d) [DEBUG] ends in a line feed\n", 1, 2);
  Logger::LogMsg(7, kComponent, "%s", "");
  EXPECT_EQ(
      "(  812:41234) [ERROR] get(565): cannot get file : link: AbC, sharing_token: tok.\n"
      "(    1:    2) [DEBUG] ends in a line feed\n"
      "\n",
      root.ReadFile(kLogFile));
}

TEST(LoggerFileTest, FileFollowsTheRootAndTheName) {
  platform_test::TempRoot root;
  EXPECT_EQ(-1, Logger::Initialize(1, "", "", 50, 1)) << "only type 0 is known";
  ASSERT_EQ(0, Logger::Initialize(0, "", "", 50, 1));
  EXPECT_EQ(root.Host(kLogFile), Logger::LogFilePath());
  ASSERT_EQ(0, Logger::Initialize(0, "other.log", "", 50, 1));
  EXPECT_EQ(root.Host("/var/packages/BrindlexPlyth/target/var/log/other.log"), Logger::LogFilePath());
  ASSERT_EQ(0, Logger::Initialize(0, "/var/log/sync.log", "", 50, 1));
  Logger::LogMsg(3, kComponent, "x");
  EXPECT_EQ("x\n", root.ReadFile("/var/log/sync.log"));
  ASSERT_EQ(0, Logger::Initialize(0, "", "", 50, 1));
}

TEST(LoggerFileTest, CutsToTheNewestHalfPastTheLimit) {
  platform_test::TempRoot root;
  std::string full;
  for (int i = 0; full.size() <= 1024 * 1024; ++i) full += "line " + std::to_string(100000 + i) + "\n";
  root.WriteFile(kLogFile, full);
  ASSERT_EQ(0, Logger::Initialize(0, "", "", 1, 1));
  Logger::LogMsg(3, kComponent, "last");
  const std::string cut = root.ReadFile(kLogFile);
  EXPECT_LE(cut.size(), (full.size() + 5) / 2);
  EXPECT_GT(cut.size(), (full.size() + 5) / 2 - 20);
  EXPECT_EQ(0u, cut.find("line 1")) << "starts at a whole line";
  EXPECT_EQ("line 1", cut.substr(cut.size() - 17, 6));
  EXPECT_EQ("last\n", cut.substr(cut.size() - 5));

  ASSERT_EQ(0, Logger::Initialize(0, "", "", 0, 1));
  Logger::LogMsg(3, kComponent, "kept");
  EXPECT_EQ(cut + "kept\n", root.ReadFile(kLogFile)) << "size 0: no limit";
  ASSERT_EQ(0, Logger::Initialize(0, "", "", 50, 1));
}

}  // namespace
