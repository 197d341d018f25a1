// Worker processes writing the store at once lose no write.
#include <sys/wait.h>
#include <unistd.h>

#include <sys/stat.h>

#include <functional>
#include <map>

#include "tokens.h"

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

// The database and its write-ahead log together.
int64_t StoreBytes() {
  int64_t total = 0;
  for (const char* suffix : {"", "-wal"}) {
    struct stat info;
    if (stat((plyth_services::Store::DatabaseFile() + suffix).c_str(), &info) == 0) total += info.st_size;
  }
  return total;
}

// The answer codes of `count` forked processes running `work` at once, by code.
std::map<int, int> AnswersInProcesses(int count, const std::function<int()>& work) {
  std::vector<pid_t> workers;
  for (int i = 0; i < count; ++i) {
    const pid_t pid = fork();
    if (pid == 0) _exit(work() % 1000);  // the service's codes fit: 1037 -> 37
    workers.push_back(pid);
  }
  std::map<int, int> answers;
  for (pid_t pid : workers) {
    int status = 0;
    const bool exited = waitpid(pid, &status, 0) == pid && WIFEXITED(status);
    const int code = exited ? WEXITSTATUS(status) : -1;
    ++answers[code > 0 ? code + 1000 : code];
  }
  return answers;
}

// No store connection may cross a fork: the test's own is closed meanwhile.
TEST_F(ServicesTest, ConcurrentUnlocksWriteNothingAndABurstOfGuessesRecordsTheLimit) {
  const Item item = AddItem("alice", "/plan.txt", "p");
  const std::string open = Share(item), locked = Share(item, "s3cret");
  store_.reset();
  const int64_t before = StoreBytes();
  EXPECT_EQ(InProcesses(6, [&] {
              for (int i = 0; i < 25; ++i) {
                if (ErrorCode(Auth(open, "")) != 0) return false;
              }
              return true;
            }), 0);
  EXPECT_EQ(StoreBytes(), before);

  // Every guess passes the first look before any is recorded; the count
  // taken again under the write lock refuses those past the limit.
  EXPECT_EQ(AnswersInProcesses(16, [&] { return ErrorCode(Auth(locked, "wrong")); }),
            (std::map<int, int>{{1037, plyth_services::kThrottleFailures}, {1039, 16 - plyth_services::kThrottleFailures}}));
  Reopen();
  EXPECT_EQ(Count(Db(), "SELECT COUNT(*) FROM auth_failures"), plyth_services::kThrottleFailures);
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
