#include "store.h"

#include <pthread.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <unordered_map>
#include <vector>

#include "zant/appliance.h"
#include "zant/file_cache.h"

namespace plyth_services {

const char kDatabasePath[] = "/var/packages/BrindlexPlyth/target/var/plyth.db";
const char kDataDir[] = "/var/packages/BrindlexPlyth/target/var/data";

namespace {

// Each entry brings the schema from version i to i + 1. Entries are never
// edited once released; a change of schema is a new entry.
const char* const kMigrations[] = {
    // 0 -> 1
    "CREATE TABLE items ("
    "  file_id TEXT PRIMARY KEY,"
    "  parent_id TEXT NOT NULL DEFAULT '',"
    "  owner_uid INTEGER NOT NULL,"
    "  owner_name TEXT NOT NULL,"
    "  path TEXT NOT NULL,"
    "  display_path TEXT NOT NULL,"
    "  name TEXT NOT NULL,"
    "  kind INTEGER NOT NULL CHECK (kind IN (0, 1)),"
    "  created_time INTEGER NOT NULL,"
    "  modified_time INTEGER NOT NULL,"
    "  access_time INTEGER NOT NULL,"
    "  change_time INTEGER NOT NULL,"
    "  size INTEGER NOT NULL DEFAULT 0,"
    "  hash TEXT NOT NULL DEFAULT '',"
    "  removed INTEGER NOT NULL DEFAULT 0,"
    "  permanent_link TEXT NOT NULL UNIQUE,"
    "  link_visibility TEXT NOT NULL DEFAULT 'members'"
    "    CHECK (link_visibility IN ('members', 'signed_in', 'anyone')),"
    "  link_role TEXT NOT NULL DEFAULT 'viewer',"
    "  sync_id INTEGER NOT NULL DEFAULT 0,"
    "  properties TEXT NOT NULL DEFAULT '{}',"
    "  UNIQUE (owner_name, path));"
    "CREATE INDEX items_parent ON items (parent_id);"
    "CREATE TABLE permissions ("
    "  item_id TEXT NOT NULL REFERENCES items (file_id) ON DELETE CASCADE,"
    "  member TEXT NOT NULL,"
    "  role TEXT NOT NULL,"
    "  PRIMARY KEY (item_id, member));"
    "CREATE TABLE sharing_links ("
    "  id TEXT PRIMARY KEY,"
    "  permanent_link TEXT NOT NULL,"
    "  password_hash TEXT NOT NULL DEFAULT '',"
    "  expires INTEGER NOT NULL DEFAULT 0,"
    "  role TEXT NOT NULL DEFAULT 'viewer',"
    "  created INTEGER NOT NULL);"
    "CREATE INDEX sharing_links_link ON sharing_links (permanent_link);"
    "CREATE TABLE tokens ("
    "  token_hash TEXT PRIMARY KEY,"
    "  sharing_link TEXT NOT NULL,"
    "  expires INTEGER NOT NULL,"
    "  created INTEGER NOT NULL);"
    "CREATE INDEX tokens_expires ON tokens (expires);"
    "CREATE INDEX tokens_link ON tokens (sharing_link);"
    "CREATE TABLE labels ("
    "  label_id TEXT PRIMARY KEY,"
    "  owner_name TEXT NOT NULL,"
    "  name TEXT NOT NULL,"
    "  color TEXT NOT NULL DEFAULT '',"
    "  position INTEGER NOT NULL DEFAULT 0);"
    "CREATE TABLE item_labels ("
    "  item_id TEXT NOT NULL REFERENCES items (file_id) ON DELETE CASCADE,"
    "  label_id TEXT NOT NULL REFERENCES labels (label_id) ON DELETE CASCADE,"
    "  PRIMARY KEY (item_id, label_id));"
    "CREATE TABLE revisions ("
    "  item_id TEXT NOT NULL REFERENCES items (file_id) ON DELETE CASCADE,"
    "  version_id TEXT NOT NULL,"
    "  created_time INTEGER NOT NULL,"
    "  modified_time INTEGER NOT NULL,"
    "  hash TEXT NOT NULL,"
    "  size INTEGER NOT NULL,"
    "  editor_uid INTEGER NOT NULL,"
    "  editors TEXT NOT NULL DEFAULT '',"
    "  PRIMARY KEY (item_id, version_id));"
    "CREATE TABLE auth_failures ("
    "  sharing_link TEXT NOT NULL,"
    "  at INTEGER NOT NULL);"
    "CREATE INDEX auth_failures_link ON auth_failures (sharing_link, at);",
    // 1 -> 2: every record fetch reads the highest sync id.
    "CREATE INDEX items_sync_id ON items (sync_id);",
    // 2 -> 3: tokens are signed, not stored; the wrong-password throttle
    // counts per link and client address.
    "DROP TABLE tokens;"
    "ALTER TABLE sharing_links ADD COLUMN credential_generation INTEGER NOT NULL DEFAULT 0;"
    "DROP TABLE auth_failures;"
    "CREATE TABLE auth_failures ("
    "  sharing_link TEXT NOT NULL,"
    "  client TEXT NOT NULL,"
    "  at INTEGER NOT NULL);"
    "CREATE INDEX auth_failures_key ON auth_failures (sharing_link, client, at);"
    "CREATE INDEX auth_failures_at ON auth_failures (at);",
    // 3 -> 4: requests for access to an item, one per requester.
    "CREATE TABLE access_requests ("
    "  item_id TEXT NOT NULL REFERENCES items (file_id) ON DELETE CASCADE,"
    "  requester TEXT NOT NULL,"
    "  at INTEGER NOT NULL,"
    "  message TEXT NOT NULL DEFAULT '',"
    "  PRIMARY KEY (item_id, requester));",
};
constexpr int kMigrationCount = sizeof(kMigrations) / sizeof(kMigrations[0]);
static_assert(kMigrationCount == kSchemaVersion, "one migration per schema version");

std::string ParentDir(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos || slash == 0 ? std::string("/") : path.substr(0, slash);
}

bool IsBusy(int rc) { return (rc & 0xff) == SQLITE_BUSY || (rc & 0xff) == SQLITE_LOCKED; }

int UserVersion(sqlite3* db) {
  Statement query(db, "PRAGMA user_version");
  return query.Row() ? static_cast<int>(query.Int(0)) : -1;
}

// Idle prepared statements of the shared connection, by SQL text. Preparing
// is most of the cost of the small queries a request makes.
struct StatementCache {
  std::unordered_map<std::string, std::vector<sqlite3_stmt*>> idle;
  size_t count = 0;
};
constexpr size_t kMaxIdleStatements = 64;

// Never destroyed: the shared connection is closed by a static destructor
// that must still find it.
std::unordered_map<sqlite3*, StatementCache>& StatementCaches() {
  static auto* caches = new std::unordered_map<sqlite3*, StatementCache>();
  return *caches;
}

void DropStatementCache(sqlite3* db) {
  auto& caches = StatementCaches();
  auto cache = caches.find(db);
  if (cache == caches.end()) return;
  for (auto& entry : cache->second.idle) {
    for (sqlite3_stmt* stmt : entry.second) sqlite3_finalize(stmt);
  }
  caches.erase(cache);
}

// The process's id without a system call each time (the C library asks the
// kernel on every getpid); only a fork changes it, in the child.
pid_t ProcessId() {
  static pid_t pid = [] {
    pthread_atfork(nullptr, nullptr, [] { pid = getpid(); });
    return getpid();
  }();
  return pid;
}

// Opening costs far more than a request's own queries (reading the schema,
// setting up the WAL index, checkpointing on close), so a process keeps one
// connection for all its requests.
class SharedConnection {
 public:
  ~SharedConnection() {
    // A fork's copy of the connection belongs to the parent; closing it
    // here would checkpoint and drop locks under the parent's feet.
    if (pid_ != ProcessId()) static_cast<void>(store_.release());
  }

  Store* Get(std::string* error) {
    const std::string file = Store::DatabaseFile();
    if (store_ && pid_ == ProcessId() && file_ == file && Usable(store_.get())) return store_.get();
    if (store_ && pid_ != ProcessId()) static_cast<void>(store_.release());
    store_.reset();
    checkedAt_ = -1;
    store_ = Store::Open(error);
    if (!store_) return nullptr;
    StatementCaches()[store_->Db()];
    file_ = file;
    pid_ = ProcessId();
    return store_.get();
  }

 private:
  // False once the file was unlinked or replaced since the connection
  // opened it. A transaction a failed request left open is rolled back.
  bool Usable(Store* store) {
    // The check costs three stat calls; a server that looks at its files at
    // most once a second (FileCache) looks at its store as often.
    const long long now = ZANT::FileCache::MonotonicSecond();
    if (!ZANT::FileCache::LookStands(checkedAt_, now)) {
      int moved = 1;
      if (sqlite3_file_control(store->Db(), "main", SQLITE_FCNTL_HAS_MOVED, &moved) != SQLITE_OK ||
          moved != 0) {
        return false;
      }
      checkedAt_ = now;
    }
    if (sqlite3_get_autocommit(store->Db()) == 0) store->Exec("ROLLBACK");
    return true;
  }

  std::unique_ptr<Store> store_;
  long long checkedAt_ = -1;  // monotonic second of the last look at the file
  std::string file_;
  pid_t pid_ = 0;
};

}  // namespace

ReadSnapshot::ReadSnapshot(Store& store) : db_(store.Db()) {
  began_ = sqlite3_get_autocommit(db_) != 0 && Statement(db_, "BEGIN").Run();
}

ReadSnapshot::~ReadSnapshot() {
  if (began_ && !Statement(db_, "COMMIT").Run()) Statement(db_, "ROLLBACK").Run();
}

bool MakeDirs(const std::string& path) {
  std::string partial;
  size_t pos = 0;
  while (pos != std::string::npos) {
    pos = path.find('/', pos + 1);
    partial = path.substr(0, pos);
    if (partial.empty()) continue;
    if (mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST) return false;
  }
  return true;
}

Statement::Statement(sqlite3* db, const char* sql) {
  auto& caches = StatementCaches();
  auto cache = caches.find(db);
  if (cache != caches.end()) {
    cacheDb_ = db;
    sql_ = sql;
    auto idle = cache->second.idle.find(sql_);
    if (idle != cache->second.idle.end() && !idle->second.empty()) {
      stmt_ = idle->second.back();
      idle->second.pop_back();
      --cache->second.count;
      return;
    }
  }
  if (sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr) != SQLITE_OK) {
    sqlite3_finalize(stmt_);
    stmt_ = nullptr;
  }
}

Statement::~Statement() {
  if (stmt_ != nullptr && cacheDb_ != nullptr) {
    auto& caches = StatementCaches();
    auto cache = caches.find(cacheDb_);
    if (cache != caches.end() && cache->second.count < kMaxIdleStatements) {
      // Reset ends the statement's read: a kept statement must not hold a snapshot.
      sqlite3_reset(stmt_);
      sqlite3_clear_bindings(stmt_);
      cache->second.idle[sql_].push_back(stmt_);
      ++cache->second.count;
      return;
    }
  }
  sqlite3_finalize(stmt_);
}

Statement& Statement::Bind(int index, const std::string& value) {
  if (stmt_ != nullptr) {
    sqlite3_bind_text(stmt_, index, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
  }
  return *this;
}

Statement& Statement::Bind(int index, int64_t value) {
  if (stmt_ != nullptr) sqlite3_bind_int64(stmt_, index, value);
  return *this;
}

int Statement::Step() { return stmt_ == nullptr ? SQLITE_MISUSE : sqlite3_step(stmt_); }

std::string Statement::Text(int column) const {
  const unsigned char* text = sqlite3_column_text(stmt_, column);
  if (text == nullptr) return std::string();
  return std::string(reinterpret_cast<const char*>(text),
                     static_cast<size_t>(sqlite3_column_bytes(stmt_, column)));
}

int64_t Statement::Int(int column) const { return sqlite3_column_int64(stmt_, column); }

std::string Store::DatabaseFile() { return ZANT::RootPath(kDatabasePath); }
std::string Store::DataDirectory() { return ZANT::RootPath(kDataDir); }

std::string Store::ContentFile(const std::string& hash) {
  return DataDirectory() + "/" + hash.substr(0, 2) + "/" + hash;
}

std::unique_ptr<Store> Store::Open(std::string* error) {
  const std::string file = DatabaseFile();
  if (!MakeDirs(ParentDir(file)) || !MakeDirs(DataDirectory())) {
    if (error != nullptr) *error = "cannot create the directories of " + file;
    return nullptr;
  }
  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  if (rc != SQLITE_OK) {
    if (error != nullptr) *error = file + ": " + (db ? sqlite3_errmsg(db) : sqlite3_errstr(rc));
    sqlite3_close(db);
    return nullptr;
  }
  std::unique_ptr<Store> store(new Store(db));
  sqlite3_busy_timeout(db, kBusyTimeoutMs);
  // WAL lets readers go on while one process writes. Switching needs a
  // moment without other connections; a busy database already is in WAL.
  store->Exec("PRAGMA journal_mode=WAL");
  store->Exec("PRAGMA foreign_keys=ON");
  store->Exec("PRAGMA synchronous=NORMAL");
  if (!store->Migrate(error)) return nullptr;
  return store;
}

Store* Store::Shared(std::string* error) {
  static SharedConnection connection;
  return connection.Get(error);
}

Store::~Store() {
  DropStatementCache(db_);
  sqlite3_close_v2(db_);
}

bool Store::Exec(const char* sql) { return sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK; }

std::string Store::LastError() const { return sqlite3_errmsg(db_); }

int Store::Changes() const { return sqlite3_changes(db_); }

// Several workers may open a fresh store at once; the version is read again
// under the write lock so that each migration runs exactly once.
bool Store::Migrate(std::string* error) {
  if (UserVersion(db_) == kSchemaVersion) return true;
  std::string failure;
  int rc = Write(
      [&]() -> int {
        int version = UserVersion(db_);
        if (version < 0 || version > kSchemaVersion) {
          failure = "unknown schema version " + std::to_string(version);
          return 1;
        }
        for (; version < kSchemaVersion; ++version) {
          if (!Exec(kMigrations[version])) {
            failure = "migration to version " + std::to_string(version + 1) + ": " + LastError();
            return 1;
          }
        }
        std::string pragma = "PRAGMA user_version=" + std::to_string(kSchemaVersion);
        if (!Exec(pragma.c_str())) {
          failure = LastError();
          return 1;
        }
        return 0;
      },
      2);
  if (rc == 0) return true;
  if (error != nullptr) *error = failure.empty() ? "store is busy or unwritable" : failure;
  return false;
}

int Store::Write(const std::function<int()>& change, int storeError) {
  for (int attempt = 0; attempt < kWriteAttempts; ++attempt) {
    int rc = sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    if (IsBusy(rc)) continue;
    if (rc != SQLITE_OK) return storeError;
    int result = change();
    if (result != 0) {
      Exec("ROLLBACK");
      return result;
    }
    rc = sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr);
    if (rc == SQLITE_OK) return 0;
    Exec("ROLLBACK");
    if (!IsBusy(rc)) return storeError;
  }
  return storeError;
}

}  // namespace plyth_services
