// The link service's SQLite store: where it lives, its schema and how
// every writer gets its change in while many worker processes share it.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace plyth_services {

// Appliance paths, placed under ZANT::RootPath.
extern const char kDatabasePath[];  // "/var/packages/BrindlexPlyth/target/var/plyth.db"
extern const char kDataDir[];       // "/var/packages/BrindlexPlyth/target/var/data"

// PRAGMA user_version of the newest schema.
constexpr int kSchemaVersion = 4;
// How long one statement waits for another process's write lock.
constexpr int kBusyTimeoutMs = 5000;
// Write transactions still busy after the timeout are started again this often.
constexpr int kWriteAttempts = 4;

// One prepared statement. Binding indexes start at 1, columns at 0. On the
// shared connection (Store::Shared) statements are kept prepared between
// uses: one made again with the same text gets the kept one, reset and
// without bindings.
class Statement {
 public:
  Statement(sqlite3* db, const char* sql);
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  bool Ok() const { return stmt_ != nullptr; }
  Statement& Bind(int index, const std::string& value);
  Statement& Bind(int index, int64_t value);
  // SQLITE_ROW, SQLITE_DONE or an error code.
  int Step();
  bool Row() { return Step() == SQLITE_ROW; }
  // Runs to the end; true on SQLITE_DONE.
  bool Run() { return Step() == SQLITE_DONE; }
  std::string Text(int column) const;
  int64_t Int(int column) const;

 private:
  sqlite3_stmt* stmt_ = nullptr;
  sqlite3* cacheDb_ = nullptr;  // set when the statement goes back to a cache
  std::string sql_;
};

class Store {
 public:
  // Opens (creating the file and its directories when missing) and brings
  // the schema up to kSchemaVersion. Null and a message on failure.
  static std::unique_ptr<Store> Open(std::string* error);
  // The connection this process keeps for its requests, opened on first use
  // and again whenever the database file was replaced or removed, the root
  // moved, or the process is a fork of the one that opened it. Owned by the
  // process: callers must not keep it across requests, and only one thread
  // may use it. Null and a message on failure.
  static Store* Shared(std::string* error);
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  sqlite3* Db() const { return db_; }
  bool Exec(const char* sql);
  std::string LastError() const;
  // Rows changed by the last statement.
  int Changes() const;

  // Runs `change` inside BEGIN IMMEDIATE ... COMMIT. `change` answers 0 to
  // commit or a code to roll back, which Write returns. A transaction that
  // cannot start or commit because another process holds the lock is run
  // again, up to kWriteAttempts times; after that, or on any other store
  // failure, Write answers `storeError`.
  int Write(const std::function<int()>& change, int storeError);

  // Host paths of the database and of the content directory.
  static std::string DatabaseFile();
  static std::string DataDirectory();
  // Where content with this SHA-256 is kept: <data>/<first two hex digits>/<hash>.
  static std::string ContentFile(const std::string& hash);

 private:
  explicit Store(sqlite3* db) : db_(db) {}
  bool Migrate(std::string* error);

  sqlite3* db_;
};

// Several reads seen from one snapshot of the store, under one read lock
// instead of one per statement. Does nothing inside a transaction already
// open. Make it before the statements it covers, so that it ends after them.
class ReadSnapshot {
 public:
  explicit ReadSnapshot(Store& store);
  ~ReadSnapshot();
  ReadSnapshot(const ReadSnapshot&) = delete;
  ReadSnapshot& operator=(const ReadSnapshot&) = delete;

 private:
  sqlite3* db_;
  bool began_ = false;
};

// Makes `path` and every directory above it (mode 0755); false when one
// cannot be made.
bool MakeDirs(const std::string& path);

}  // namespace plyth_services
