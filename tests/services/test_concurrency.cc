// Worker processes opening a fresh store at once: one of them migrates it.
// (Concurrent unlocks and bursts of guesses go through the whole stack in
// tests/host/integration_links.py.)
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "services_fixture.h"

namespace services_test {
namespace {

// Runs `work` in `count` forked processes at once; the number that failed.
int InProcesses(int count, const std::function<bool()>& work) {
  std::vector<pid_t> workers;
  for (int i = 0; i < count; ++i) {
    const pid_t pid = fork();
    if (pid == 0) _exit(work() ? 0 : 1);
    workers.push_back(pid);
  }
  int failed = 0;
  for (pid_t pid : workers) {
    int status = 0;
    failed += waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0;
  }
  return failed;
}

TEST_F(ServicesTest, FreshStoresAreMigratedOnceByConcurrentOpeners) {
  store_.reset();
  root_.Remove("/var/packages/BrindlexPlyth/target/var");
  EXPECT_EQ(InProcesses(6, [] {
              std::string error;
              return plyth_services::Store::Open(&error) != nullptr;
            }), 0);
  Reopen();
  plyth_services::Statement version(Db().Db(), "PRAGMA user_version"), mode(Db().Db(), "PRAGMA journal_mode");
  ASSERT_TRUE(version.Row() && mode.Row());
  EXPECT_EQ(version.Int(0), plyth_services::kSchemaVersion);
  EXPECT_EQ(mode.Text(0), "wal");
}

}  // namespace
}  // namespace services_test
