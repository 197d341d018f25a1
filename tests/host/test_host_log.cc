// The host log: what a value turns into on its line, where a long line is
// cut, and the file the lines go to.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>
#include <string>

#include "harness.h"
#include "zant_host/host.h"

namespace {

TEST(HostLog, ValuesNeverEndOrForgeALine) {
  const struct Row { const char* what; std::string message; size_t room; std::string written; } rows[] = {
      {"a forged line", "id\r\n2026-01-01T00:00:00Z zant-webapi[1]: error: x", 100,
       "id\\r\\n2026-01-01T00:00:00Z zant-webapi[1]: error: x"},
      {"NUL, tab, escape, DEL", std::string("\0\t\x1b\x7f", 4), 100, "\\x00\\x09\\x1b\\x7f"},
      {"UTF-8 and other high bytes kept", "caf\xc3\xa9 \xff", 100, "caf\xc3\xa9 \xff"},
      {"exactly the room", "abcdefghij", 10, "abcdefghij"},
      {"one byte over", "abcdefghijk", 10, "abcd [cut]"},
      {"never inside an escape", "abcd\nefghijk", 11, "abcd [cut]"},
      {"never inside a character", "abcd\xc3\xa9" "fghijk", 11, "abcd [cut]"},
      {"a whole character kept", "abc\xc3\xa9" "fghijkl", 11, "abc\xc3\xa9 [cut]"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(zant_host::HostLogText(row.message, row.room), row.written) << row.what;
  }
}

TEST(HostLog, FileIsGroupReadableOnlyAndLinesAreCut) {
  plyth_test::ApplianceRoot root;
  root.MakeDir("/var/log");
  const mode_t saved = umask(0);  // the mode must not depend on a lax umask
  zant_host::HostLog(false, "link %s", "x\ny");
  umask(saved);
  struct stat st;
  ASSERT_EQ(stat(root.Host(zant_host::kHostLogFile).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);

  zant_host::HostLog(true, "cookie %s", std::string(7000, 'c').c_str());
  const std::string log = root.ReadFile(zant_host::kHostLogFile);
  const std::string pid = std::to_string(getpid());
  const std::regex lines("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ zant-webapi\\[" + pid + "\\]: link x\\\\ny\n" +
                         "\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ zant-webapi\\[" + pid +
                         "\\]: error: cookie c+ \\[cut\\]\n");
  EXPECT_TRUE(std::regex_match(log, lines)) << log.substr(0, 200);
  const std::string second = log.substr(log.find('\n') + 1);
  EXPECT_EQ(second.size(), zant_host::kHostLogLineMax);
}

}  // namespace
