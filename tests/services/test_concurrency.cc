// Many worker processes writing the store at once lose no write.
#include <sys/wait.h>
#include <unistd.h>

#include "services_fixture.h"

namespace services_test {
namespace {

constexpr int kWorkers = 6;
constexpr int kTokensEach = 25;

// A worker issues its tokens and exits 0 when every unlock succeeded.
int Worker(const std::string& link) {
  int failures = 0;
  for (int i = 0; i < kTokensEach; ++i) {
    if (ErrorCode(Auth(link, "")) != 0) ++failures;
  }
  return failures == 0 ? 0 : 1;
}

TEST_F(ServicesTest, ConcurrentUnlocksAllGetTheirTokenStored) {
  plyth_services::Item item = AddItem("alice", "/plan.txt", "p");
  std::string link = Share(item);
  store_.reset();  // no connection may cross a fork

  std::vector<pid_t> workers;
  for (int i = 0; i < kWorkers; ++i) {
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) _exit(Worker(link));
    workers.push_back(pid);
  }
  for (pid_t pid : workers) {
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "worker " << pid;
  }

  std::string error;
  store_ = plyth_services::Store::Open(&error);
  ASSERT_TRUE(store_) << error;
  plyth_services::Statement count(Db().Db(), "SELECT COUNT(*), COUNT(DISTINCT token_hash) FROM tokens");
  ASSERT_TRUE(count.Row());
  EXPECT_EQ(count.Int(0), kWorkers * kTokensEach);
  EXPECT_EQ(count.Int(1), kWorkers * kTokensEach);
}

TEST_F(ServicesTest, ConcurrentWrongPasswordsAreAllCounted) {
  plyth_services::Item item = AddItem("alice", "/plan.txt", "p");
  std::string link = Share(item, "s3cret");
  store_.reset();
  // Fewer than the throttle's limit each, so that none is refused unchecked.
  constexpr int kProcesses = 4;
  std::vector<pid_t> workers;
  for (int i = 0; i < kProcesses; ++i) {
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) _exit(ErrorCode(Auth(link, "wrong")) == 1037 ? 0 : 1);
    workers.push_back(pid);
  }
  for (pid_t pid : workers) {
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  std::string error;
  store_ = plyth_services::Store::Open(&error);
  ASSERT_TRUE(store_);
  plyth_services::Statement count(Db().Db(), "SELECT COUNT(*) FROM auth_failures");
  ASSERT_TRUE(count.Row());
  EXPECT_EQ(count.Int(0), kProcesses);
}

TEST_F(ServicesTest, FreshStoresAreMigratedOnceByConcurrentOpeners) {
  store_.reset();
  root_.Remove("/var/packages/BrindlexPlyth/target/var");
  std::vector<pid_t> workers;
  for (int i = 0; i < kWorkers; ++i) {
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      std::string error;
      _exit(plyth_services::Store::Open(&error) ? 0 : 1);
    }
    workers.push_back(pid);
  }
  for (pid_t pid : workers) {
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  std::string error;
  store_ = plyth_services::Store::Open(&error);
  ASSERT_TRUE(store_);
  plyth_services::Statement version(Db().Db(), "PRAGMA user_version");
  ASSERT_TRUE(version.Row());
  EXPECT_EQ(version.Int(0), plyth_services::kSchemaVersion);
  plyth_services::Statement mode(Db().Db(), "PRAGMA journal_mode");
  ASSERT_TRUE(mode.Row());
  EXPECT_EQ(mode.Text(0), "wal");
}

}  // namespace
}  // namespace services_test
