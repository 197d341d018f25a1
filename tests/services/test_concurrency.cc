// Worker processes writing the store at once lose no write.
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

int64_t Count(plyth_services::Store& store, const char* sql) {
  plyth_services::Statement count(store.Db(), sql);
  return count.Row() ? count.Int(0) : -1;
}

// No store connection may cross a fork: the test's own is closed meanwhile.
TEST_F(ServicesTest, ConcurrentUnlocksAndWrongPasswordsAreAllStored) {
  const Item item = AddItem("alice", "/plan.txt", "p");
  const std::string open = Share(item), locked = Share(item, "s3cret");
  store_.reset();
  EXPECT_EQ(InProcesses(6, [&] {
              for (int i = 0; i < 25; ++i) {
                if (ErrorCode(Auth(open, "")) != 0) return false;
              }
              return true;
            }), 0);
  // Fewer than the throttle's limit, so that none is refused unchecked.
  EXPECT_EQ(InProcesses(4, [&] { return ErrorCode(Auth(locked, "wrong")) == 1037; }), 0);
  Reopen();
  EXPECT_EQ(Count(Db(), "SELECT COUNT(DISTINCT token_hash) FROM tokens"), 150);
  EXPECT_EQ(Count(Db(), "SELECT COUNT(*) FROM auth_failures"), 4);
}

TEST_F(ServicesTest, FreshStoresAreMigratedOnceByConcurrentOpeners) {
  store_.reset();
  root_.Remove("/var/packages/BrindlexPlyth/target/var");
  EXPECT_EQ(InProcesses(6, [] {
              std::string error;
              return plyth_services::Store::Open(&error) != nullptr;
            }), 0);
  Reopen();
  EXPECT_EQ(Count(Db(), "PRAGMA user_version"), plyth_services::kSchemaVersion);
  plyth_services::Statement mode(Db().Db(), "PRAGMA journal_mode");
  ASSERT_TRUE(mode.Row());
  EXPECT_EQ(mode.Text(0), "wal");
}

}  // namespace
}  // namespace services_test
