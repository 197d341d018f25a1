// Worker processes opening a fresh store at once: one of them migrates it.
// (Concurrent unlocks and bursts of guesses go through the whole stack in
// tests/host/integration_links.py.)
#include <sys/wait.h>
#include <unistd.h>

#include "services_fixture.h"

namespace services_test {
namespace {

TEST_F(ServicesTest, FreshStoresAreMigratedOnceByConcurrentOpeners) {
  store_.reset();
  root_.Remove("/var/packages/BrindlexPlyth/target/var");
  std::vector<pid_t> openers;
  for (int i = 0; i < 6; ++i) {
    const pid_t pid = fork();
    if (pid == 0) _exit(plyth_services::Store::Open(nullptr) != nullptr ? 0 : 1);
    openers.push_back(pid);
  }
  for (pid_t pid : openers) {
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }
  Reopen();
  plyth_services::Statement version(Db().Db(), "PRAGMA user_version"), mode(Db().Db(), "PRAGMA journal_mode");
  ASSERT_TRUE(version.Row() && mode.Row());
  EXPECT_EQ(version.Int(0), plyth_services::kSchemaVersion);
  EXPECT_EQ(mode.Text(0), "wal");
}

}  // namespace
}  // namespace services_test
