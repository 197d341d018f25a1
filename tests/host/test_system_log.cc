// Whether a line is handed to the C library's syslog: what listens at the
// log socket's path, and how often the path is looked at again.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "zant_host/system_log.h"

namespace {

class SystemLogGateTest : public ::testing::Test {
 public:
  void SetUp() override {
    char dir[] = "/tmp/system-log-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
    path_ = dir_ + "/log";
  }
  void TearDown() override {
    for (int fd : fds_) close(fd);
    unlink(path_.c_str());
    rmdir(dir_.c_str());
  }

  // A socket of `type` bound at the path; listening when a stream socket.
  int Bind(int type) {
    const int fd = socket(AF_UNIX, type, 0);
    struct sockaddr_un address;
    memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, path_.c_str());
    EXPECT_EQ(bind(fd, reinterpret_cast<struct sockaddr*>(&address), sizeof(address)), 0);
    if (type == SOCK_STREAM) listen(fd, 1);
    fds_.push_back(fd);
    return fd;
  }

  std::string dir_;
  std::string path_;
  std::vector<int> fds_;
};

TEST_F(SystemLogGateTest, WhatListensAtThePath) {
  const struct Row { const char* what; std::function<void(SystemLogGateTest*)> make; bool listens; } rows[] = {
      {"nothing", [](SystemLogGateTest*) {}, false},
      {"a datagram daemon", [](SystemLogGateTest* t) { t->Bind(SOCK_DGRAM); }, true},
      {"a stream daemon", [](SystemLogGateTest* t) { t->Bind(SOCK_STREAM); }, true},
      {"the socket file of a daemon that ended",
       [](SystemLogGateTest* t) {
         close(t->Bind(SOCK_DGRAM));
         t->fds_.pop_back();
       },
       false},
      {"a plain file", [](SystemLogGateTest* t) { fclose(fopen(t->path_.c_str(), "w")); }, false},
  };
  for (const Row& row : rows) {
    unlink(path_.c_str());
    row.make(this);
    zant_host::SystemLogGate gate(path_.c_str());
    EXPECT_EQ(gate.DaemonListens(0), row.listens) << row.what;
  }
}

TEST_F(SystemLogGateTest, LooksAgainAtMostOnceASecond) {
  // daemonThere: at the time of the call.
  const struct Row { const char* what; long long atMs; bool daemonThere, listens; } rows[] = {
      {"first line, no daemon", 5000, false, false},
      {"daemon started, same second", 5999, true, false},
      {"a second after the last look", 6000, true, true},
      {"daemon gone, same second", 6500, false, true},
      {"a second after the last look again", 7000, false, false},
  };
  zant_host::SystemLogGate gate(path_.c_str());
  for (const Row& row : rows) {
    unlink(path_.c_str());
    if (row.daemonThere) Bind(SOCK_DGRAM);
    EXPECT_EQ(gate.DaemonListens(row.atMs), row.listens) << row.what;
  }
}

}  // namespace
