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

struct ListenerRow {
  const char* what;
  std::function<void(SystemLogGateTest*)> make;
  bool listens;
};

TEST_F(SystemLogGateTest, WhatListensAtThePath) {
  const ListenerRow rows[] = {
      {.what = "nothing", .make = [](SystemLogGateTest*) {}, .listens = false},
      {.what = "a datagram daemon",
       .make = [](SystemLogGateTest* t) { t->Bind(SOCK_DGRAM); },
       .listens = true},
      {.what = "a stream daemon",
       .make = [](SystemLogGateTest* t) { t->Bind(SOCK_STREAM); },
       .listens = true},
      {.what = "the socket file of a daemon that ended",
       .make = [](SystemLogGateTest* t) {
         close(t->Bind(SOCK_DGRAM));
         t->fds_.pop_back();
       },
       .listens = false},
      {.what = "a plain file",
       .make = [](SystemLogGateTest* t) { fclose(fopen(t->path_.c_str(), "w")); },
       .listens = false},
  };
  for (const ListenerRow& row : rows) {
    unlink(path_.c_str());
    row.make(this);
    zant_host::SystemLogGate gate(path_.c_str());
    EXPECT_EQ(gate.DaemonListens(0), row.listens) << row.what;
  }
}

struct LookRow {
  const char* what;
  long long atMs;
  bool daemonThere;  // at the time of the call
  bool listens;
};

TEST_F(SystemLogGateTest, LooksAgainAtMostOnceASecond) {
  const LookRow rows[] = {
      {.what = "first line, no daemon", .atMs = 5000, .daemonThere = false, .listens = false},
      {.what = "daemon started, same second", .atMs = 5999, .daemonThere = true, .listens = false},
      {.what = "a second after the last look", .atMs = 6000, .daemonThere = true, .listens = true},
      {.what = "daemon gone, same second", .atMs = 6500, .daemonThere = false, .listens = true},
      {.what = "a second after the last look again", .atMs = 7000, .daemonThere = false, .listens = false},
  };
  zant_host::SystemLogGate gate(path_.c_str());
  int daemon = -1;
  for (const LookRow& row : rows) {
    if (row.daemonThere && daemon < 0) daemon = Bind(SOCK_DGRAM);
    if (!row.daemonThere && daemon >= 0) {
      unlink(path_.c_str());
      daemon = -1;
    }
    EXPECT_EQ(gate.DaemonListens(row.atMs), row.listens) << row.what;
  }
}

}  // namespace
