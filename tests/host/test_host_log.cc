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

struct TextRow {
  const char* what;
  std::string message;
  size_t room;
  std::string written;
};

TEST(HostLog, ValuesNeverEndOrForgeALine) {
  const TextRow rows[] = {
      {.what = "a forged line",
       .message = "id\r\n2026-01-01T00:00:00Z zant-webapi[1]: error: x",
       .room = 100,
       .written = "id\\r\\n2026-01-01T00:00:00Z zant-webapi[1]: error: x"},
      {.what = "NUL, tab, escape, DEL",
       .message = std::string("\0\t\x1b\x7f", 4),
       .room = 100,
       .written = "\\x00\\x09\\x1b\\x7f"},
      {.what = "UTF-8 and other high bytes kept", .message = "caf\xc3\xa9 \xff", .room = 100,
       .written = "caf\xc3\xa9 \xff"},
      {.what = "exactly the room", .message = "abcdefghij", .room = 10, .written = "abcdefghij"},
      {.what = "one byte over", .message = "abcdefghijk", .room = 10, .written = "abcd [cut]"},
      {.what = "never inside an escape", .message = "abcd\nefghijk", .room = 11, .written = "abcd [cut]"},
      {.what = "never inside a character", .message = "abcd\xc3\xa9" "fghijk", .room = 11,
       .written = "abcd [cut]"},
      {.what = "a whole character kept", .message = "abc\xc3\xa9" "fghijkl", .room = 11,
       .written = "abc\xc3\xa9 [cut]"},
  };
  for (const TextRow& row : rows) {
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
