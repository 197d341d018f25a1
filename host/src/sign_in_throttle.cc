#include "zant_host/sign_in_throttle.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <memory>

#include "zant/appliance.h"

namespace zant_host {

const char kSignInFailuresFile[] = "/var/lib/zant/sessions/sign-in-failures.db";

namespace {

constexpr int kBusyTimeoutMs = 5000;
constexpr int kWriteAttempts = 4;

const char kSchema[] =
    "CREATE TABLE IF NOT EXISTS failures (account TEXT NOT NULL, client TEXT NOT NULL, at INTEGER NOT NULL);"
    "CREATE INDEX IF NOT EXISTS failures_key ON failures (account, client, at);"
    "CREATE INDEX IF NOT EXISTS failures_at ON failures (at);";

struct DbCloser {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
using Db = std::unique_ptr<sqlite3, DbCloser>;

struct StmtFinalizer {
  void operator()(sqlite3_stmt* stmt) const { sqlite3_finalize(stmt); }
};
using Stmt = std::unique_ptr<sqlite3_stmt, StmtFinalizer>;

// Sign-ins are rare: a connection per attempt keeps nothing open across
// requests or forks.
Db Open(const std::string& file) {
  // The session directory is made by the first sign-in; the throttle is asked before it.
  for (size_t slash = file.find('/', 1); slash != std::string::npos; slash = file.find('/', slash + 1)) {
    mkdir(file.substr(0, slash).c_str(), 0700);
  }
  sqlite3* raw = nullptr;
  int rc = sqlite3_open_v2(file.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  Db db(raw);
  if (rc != SQLITE_OK) return Db();
  sqlite3_busy_timeout(db.get(), kBusyTimeoutMs);
  if (sqlite3_exec(db.get(), kSchema, nullptr, nullptr, nullptr) != SQLITE_OK) return Db();
  return db;
}

Stmt Prepare(sqlite3* db, const char* sql) {
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr) != SQLITE_OK) {
    sqlite3_finalize(stmt);
    return Stmt();
  }
  return Stmt(stmt);
}

// The recent failures of the key; -1 on error.
int64_t Count(sqlite3* db, const std::string& account, const std::string& client, int64_t now) {
  Stmt count = Prepare(db, "SELECT COUNT(*) FROM failures WHERE account = ?1 AND client = ?2 AND at > ?3");
  if (!count) return -1;
  sqlite3_bind_text(count.get(), 1, account.data(), static_cast<int>(account.size()), SQLITE_TRANSIENT);
  sqlite3_bind_text(count.get(), 2, client.data(), static_cast<int>(client.size()), SQLITE_TRANSIENT);
  sqlite3_bind_int64(count.get(), 3, now - kSignInWindow);
  return sqlite3_step(count.get()) == SQLITE_ROW ? sqlite3_column_int64(count.get(), 0) : -1;
}

bool Insert(sqlite3* db, const std::string& account, const std::string& client, int64_t now) {
  Stmt prune = Prepare(db, "DELETE FROM failures WHERE at <= ?1");
  Stmt insert = Prepare(db, "INSERT INTO failures (account, client, at) VALUES (?1, ?2, ?3)");
  if (!prune || !insert) return false;
  sqlite3_bind_int64(prune.get(), 1, now - kSignInWindow);
  sqlite3_bind_text(insert.get(), 1, account.data(), static_cast<int>(account.size()), SQLITE_TRANSIENT);
  sqlite3_bind_text(insert.get(), 2, client.data(), static_cast<int>(client.size()), SQLITE_TRANSIENT);
  sqlite3_bind_int64(insert.get(), 3, now);
  return sqlite3_step(prune.get()) == SQLITE_DONE && sqlite3_step(insert.get()) == SQLITE_DONE;
}

bool IsBusy(int rc) { return (rc & 0xff) == SQLITE_BUSY || (rc & 0xff) == SQLITE_LOCKED; }

}  // namespace

std::string SignInThrottle::File() const { return file_.empty() ? ZANT::RootPath(kSignInFailuresFile) : file_; }

ThrottleVerdict SignInThrottle::Check(const std::string& account, const std::string& client, int64_t now) const {
  Db db = Open(File());
  const int64_t failures = db ? Count(db.get(), account, client, now) : -1;
  if (failures < 0) return ThrottleVerdict::kUnavailable;
  return failures >= kSignInFailureLimit ? ThrottleVerdict::kThrottled : ThrottleVerdict::kAllowed;
}

ThrottleVerdict SignInThrottle::Record(const std::string& account, const std::string& client, int64_t now) const {
  Db db = Open(File());
  if (!db) return ThrottleVerdict::kUnavailable;
  for (int attempt = 0; attempt < kWriteAttempts; ++attempt) {
    int rc = sqlite3_exec(db.get(), "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    if (IsBusy(rc)) continue;
    if (rc != SQLITE_OK) return ThrottleVerdict::kUnavailable;
    const int64_t failures = Count(db.get(), account, client, now);
    ThrottleVerdict verdict = failures < 0                       ? ThrottleVerdict::kUnavailable
                              : failures >= kSignInFailureLimit ? ThrottleVerdict::kThrottled
                              : Insert(db.get(), account, client, now) ? ThrottleVerdict::kAllowed
                                                                       : ThrottleVerdict::kUnavailable;
    if (verdict != ThrottleVerdict::kAllowed) {
      sqlite3_exec(db.get(), "ROLLBACK", nullptr, nullptr, nullptr);
      return verdict;
    }
    rc = sqlite3_exec(db.get(), "COMMIT", nullptr, nullptr, nullptr);
    if (rc == SQLITE_OK) return verdict;
    sqlite3_exec(db.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    if (!IsBusy(rc)) return ThrottleVerdict::kUnavailable;
  }
  return ThrottleVerdict::kUnavailable;
}

}  // namespace zant_host
