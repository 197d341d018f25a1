// The host log: what a value turns into on its line, where a long line is
// cut, and the file the lines go to. Then whether a line is handed to the C
// library's syslog: what listens at the log socket's path, and how often the
// path is looked at again.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "harness.h"
#include "zant_host/host.h"
#include "zant_host/system_log.h"

namespace {

// The line's stamp, name and "error: " are pinned by the parameter guard's and
// the module loader's log lines.
TEST(HostLog, ValuesNeverForgeALineAndTheFileIsGroupReadableOnly) {
  const struct Row { const char* what; std::string message; size_t room; std::string written; } rows[] = {
      {"a forged line", "id\r\n2026-01-01T00:00:00Z zant-webapi[1]: error: x", 100,
       "id\\r\\n2026-01-01T00:00:00Z zant-webapi[1]: error: x"},
      {"NUL, tab, escape, DEL", std::string("\0\t\x1b\x7f", 4), 100, "\\x00\\x09\\x1b\\x7f"},
      {"UTF-8 and other high bytes kept", "caf\xc3\xa9 \xff", 100, "caf\xc3\xa9 \xff"},
      {"exactly the room", "abcdefghij", 10, "abcdefghij"},
      {"one byte over", "abcdefghijk", 10, "abcd [cut]"},
      {"never inside an escape", "abcd\nefghijk", 11, "abcd [cut]"},
      {"never inside a character", "abcd\xc3\xa9" "fghijk", 11, "abcd [cut]"},
      {"a whole character kept", "abc\xc3\xa9" "fghijkl", 11, "abc\xc3\xa9 [cut]"}};
  for (const Row& row : rows) EXPECT_EQ(zant_host::HostLogText(row.message, row.room), row.written) << row.what;
  plyth_test::ApplianceRoot root;
  root.MakeDir("/var/log");
  const mode_t saved = umask(0);  // the mode must not depend on a lax umask
  zant_host::HostLog(true, "cookie %s", std::string(7000, 'c').c_str());
  umask(saved);
  struct stat st;
  ASSERT_EQ(stat(root.Host(zant_host::kHostLogFile).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  const std::string log = root.ReadFile(zant_host::kHostLogFile);
  EXPECT_EQ(log.size(), zant_host::kHostLogLineMax);
  EXPECT_EQ(log.substr(log.size() - 12), "ccccc [cut]\n") << log.substr(0, 80);
}

class SystemLogGateTest : public ::testing::Test {
 public:
  void TearDown() override { for (int fd : fds_) close(fd); }

  // A socket of `type` bound at the path, listening when a stream socket;
  // closed again when `ended`, which leaves its file behind.
  void Bind(int type, bool ended = false) {
    const int fd = socket(AF_UNIX, type, 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, path_.c_str());
    EXPECT_EQ(bind(fd, reinterpret_cast<struct sockaddr*>(&address), sizeof(address)), 0);
    if (type == SOCK_STREAM) listen(fd, 1);
    if (ended)
      close(fd);
    else
      fds_.push_back(fd);
  }

  plyth_test::ApplianceRoot root_;
  std::string path_ = root_.Host("/log");
  std::vector<int> fds_;
};

TEST_F(SystemLogGateTest, WhatListensAtThePathLookedAtAgainAtMostOnceASecond) {
  const struct Row { const char* what; std::function<void(SystemLogGateTest*)> make; bool listens; } rows[] = {
      {"nothing", [](SystemLogGateTest*) {}, false},
      {"a datagram daemon", [](SystemLogGateTest* t) { t->Bind(SOCK_DGRAM); }, true},
      {"a stream daemon", [](SystemLogGateTest* t) { t->Bind(SOCK_STREAM); }, true},
      {"the socket file of a daemon that ended", [](SystemLogGateTest* t) { t->Bind(SOCK_DGRAM, true); }, false},
      {"a plain file", [](SystemLogGateTest* t) { fclose(fopen(t->path_.c_str(), "w")); }, false}};
  for (const Row& row : rows) {
    unlink(path_.c_str());
    row.make(this);
    zant_host::SystemLogGate gate(path_.c_str());
    EXPECT_EQ(gate.DaemonListens(0), row.listens) << row.what;
  }
  // daemonThere: at the time of the call.
  const struct Later { const char* what; long long atMs; bool daemonThere, listens; } later[] = {
      {"first line, no daemon", 5000, false, false},
      {"daemon started, same second", 5999, true, false},
      {"a second after the last look", 6000, true, true},
      {"daemon gone, same second", 6500, false, true},
      {"a second after the last look again", 7000, false, false}};
  zant_host::SystemLogGate gate(path_.c_str());
  for (const Later& row : later) {
    unlink(path_.c_str());
    if (row.daemonThere) Bind(SOCK_DGRAM);
    EXPECT_EQ(gate.DaemonListens(row.atMs), row.listens) << row.what;
  }
}

}  // namespace
