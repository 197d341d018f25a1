#include "zant/file_cache.h"

#include <errno.h>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <map>
#include <mutex>
#include <unordered_map>

namespace ZANT {
namespace FileCache {

namespace {

struct Entry {
  long long checkedAt = -1;  // monotonic second of the last stat()
  bool missing = false;  // stat() failed with `missingError`
  int missingError = 0;
  std::shared_ptr<const Content> content;
  std::map<std::string, std::shared_ptr<const void>> derived;
};

struct StampEntry {
  long long checkedAt = 0;  // monotonic second of the stat() below
  int error = 0;            // 0: `status` holds the answer
  struct stat status {};
};

struct Cache {
  std::mutex mutex;
  std::unordered_map<std::string, Entry> entries;
  std::unordered_map<std::string, StampEntry> stamps;
  int revalidateSeconds = 0;
};

Cache& TheCache() {
  static Cache* cache = new Cache;  // never destroyed: used from atexit handlers too
  return *cache;
}

bool SameTime(const struct timespec& a, const struct timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool SameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mode == b.st_mode && a.st_uid == b.st_uid && a.st_gid == b.st_gid &&
         SameTime(a.st_mtim, b.st_mtim) && SameTime(a.st_ctim, b.st_ctim);
}

// Missing files are remembered; a refusal is not, since it depends on the
// ids the process holds at the time, which change between requests.
bool Remembered(int error) { return error == ENOENT || error == ENOTDIR; }

// Whether the ids the process holds now could open the file read-only, as
// far as its own bits tell; a group or ACL grant is left to a real open.
bool SurelyReadable(const struct stat& status) {
  if (status.st_mode & S_IROTH) return true;
  uid_t euid = geteuid();
  return euid == 0 || (status.st_uid == euid && (status.st_mode & S_IRUSR));
}

std::shared_ptr<const Content> ReadNow(const std::string& path) {
  auto content = std::make_shared<Content>();
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    content->error = errno;
    return content;
  }
  content->opened = true;
  if (fstat(fd, &content->status) != 0) {
    content->error = errno;
    close(fd);
    return content;
  }
  if (content->status.st_size > 0) content->bytes.reserve(static_cast<size_t>(content->status.st_size));
  char buffer[16384];
  for (;;) {
    ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      content->error = errno;
      break;
    }
    if (n == 0) {
      content->read = true;
      break;
    }
    content->bytes.append(buffer, static_cast<size_t>(n));
  }
  close(fd);
  return content;
}

// Brings `entry` up to date with the disk; false when the file must be read
// afresh for this caller alone (it is not surely readable with the ids held).
bool Refresh(const std::string& path, Entry& entry) {
  // A relative path names another file whenever the working directory changes.
  if (path.empty() || path[0] != '/') return false;
  const long long now = MonotonicSecond();
  if (entry.content && now - entry.checkedAt < TheCache().revalidateSeconds) {
    return entry.missing || SurelyReadable(entry.content->status);
  }
  struct stat status;
  if (stat(path.c_str(), &status) != 0) {
    int error = errno;
    if (entry.missing && entry.missingError == error) {
      entry.checkedAt = now;
      return true;
    }
    entry = Entry();
    if (!Remembered(error)) return false;
    entry.missing = true;
    entry.missingError = error;
    auto content = std::make_shared<Content>();
    content->error = error;
    entry.content = content;
    entry.checkedAt = now;
    return true;
  }
  if (!SurelyReadable(status)) return false;
  if (entry.content && entry.content->opened && SameFile(entry.content->status, status)) {
    entry.checkedAt = now;
    return true;
  }
  entry = Entry();
  entry.content = ReadNow(path);
  // A refused or vanished file is not kept: the next use tries again.
  if (!entry.content->opened) {
    entry = Entry();
    return false;
  }
  entry.checkedAt = now;
  return true;
}

}  // namespace

std::shared_ptr<const Content> Read(const std::string& path) {
  Cache& cache = TheCache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  Entry& entry = cache.entries[path];
  if (!Refresh(path, entry)) return ReadNow(path);
  return entry.content;
}

std::shared_ptr<const void> Derived(
    const std::string& path, const char* kind,
    const std::function<std::shared_ptr<const void>(const Content&)>& make) {
  Cache& cache = TheCache();
  std::unique_lock<std::mutex> lock(cache.mutex);
  Entry& entry = cache.entries[path];
  if (!Refresh(path, entry)) {
    auto content = ReadNow(path);
    lock.unlock();
    return make(*content);
  }
  auto found = entry.derived.find(kind);
  if (found != entry.derived.end()) return found->second;
  std::shared_ptr<const void> value = make(*entry.content);
  entry.derived[kind] = value;
  return value;
}

bool Stat(const std::string& path, struct stat* status) {
  Cache& cache = TheCache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  if (path.empty() || path[0] != '/') return stat(path.c_str(), status) == 0;
  const long long now = MonotonicSecond();
  auto found = cache.stamps.find(path);
  if (found == cache.stamps.end() || found->second.checkedAt != now) {
    StampEntry& stamp = cache.stamps[path];
    stamp.checkedAt = now;
    stamp.error = stat(path.c_str(), &stamp.status) == 0 ? 0 : errno;
    found = cache.stamps.find(path);
  }
  if (found->second.error != 0) {
    errno = found->second.error;
    return false;
  }
  *status = found->second.status;
  return true;
}

void SetRevalidateSeconds(int seconds) {
  Cache& cache = TheCache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  cache.revalidateSeconds = seconds > 0 ? seconds : 0;
}

int RevalidateSeconds() {
  Cache& cache = TheCache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  return cache.revalidateSeconds;
}

long long MonotonicSecond() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return static_cast<long long>(now.tv_sec);
}

bool LookStands(long long lookedAt, long long now) {
  return lookedAt >= 0 && now - lookedAt < RevalidateSeconds();
}

}  // namespace FileCache
}  // namespace ZANT
