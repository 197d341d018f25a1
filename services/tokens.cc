#include "tokens.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "sharing.h"
#include "zant/appliance.h"
#include "zant/crypto.h"
#include "zant/file_cache.h"

namespace plyth_services {

const char kTokenKeyPath[] = "/var/packages/BrindlexPlyth/target/var/sharing-token.key";

namespace {

constexpr size_t kMacHexLength = 64;
// Seconds since the epoch have at most this many digits for the next few
// million years; more is not a token of ours.
constexpr size_t kMaxExpiryDigits = 15;

struct KeyCache {
  std::string path;
  dev_t dev = 0;
  ino_t ino = 0;
  std::string key;
  long long checkedAt = -1;  // monotonic second of the last look at the file
};

bool ReadKey(const std::string& path, std::string* key, struct stat* info) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  unsigned char bytes[kTokenKeyBytes + 1];
  ssize_t n = read(fd, bytes, sizeof(bytes));
  bool ok = n == static_cast<ssize_t>(kTokenKeyBytes) && fstat(fd, info) == 0;
  close(fd);
  if (ok) key->assign(reinterpret_cast<const char*>(bytes), kTokenKeyBytes);
  return ok;
}

// Written aside and linked into place, so that workers starting together
// all end up with the one key that got there first.
bool MakeKey(const std::string& path) {
  unsigned char bytes[kTokenKeyBytes];
  if (!ZANT::FillRandom(bytes, sizeof(bytes))) return false;
  const std::string temp = path + ".tmp." + std::to_string(getpid());
  int fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  // The first unlock often comes from the landing page, under raised ids:
  // the key still belongs to the service that owns the store's directory,
  // which reads it without them.
  const std::string dir = path.substr(0, path.rfind('/'));
  struct stat owner;
  bool ok = geteuid() != 0 || (stat(dir.c_str(), &owner) == 0 && fchown(fd, owner.st_uid, owner.st_gid) == 0);
  ok = ok && write(fd, bytes, sizeof(bytes)) == static_cast<ssize_t>(sizeof(bytes)) && fsync(fd) == 0;
  ok = close(fd) == 0 && ok;
  ok = ok && (link(temp.c_str(), path.c_str()) == 0 || errno == EEXIST);
  unlink(temp.c_str());
  return ok;
}

std::string Mac(const std::string& key, const SharingLink& link, int64_t expires) {
  const std::string message = "plyth-sharing-token\n" + link.id + "\n" + std::to_string(link.created) + "\n" +
                              std::to_string(link.credential_generation) + "\n" + std::to_string(expires);
  return ZANT::HmacSha256Hex(key, message);
}

bool AllDigits(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

bool LoadTokenKey(std::string* key, std::string* error) {
  static KeyCache cache;
  const std::string path = ZANT::RootPath(kTokenKeyPath);
  // A server that looks at its files at most once a second (FileCache)
  // looks at the key as often: a replaced key is seen within that.
  const long long now = ZANT::FileCache::MonotonicSecond();
  if (cache.path == path && ZANT::FileCache::LookStands(cache.checkedAt, now)) {
    *key = cache.key;
    return true;
  }
  struct stat info;
  if (cache.path == path && stat(path.c_str(), &info) == 0 && info.st_dev == cache.dev &&
      info.st_ino == cache.ino) {
    cache.checkedAt = now;
    *key = cache.key;
    return true;
  }
  std::string fresh;
  if (!ReadKey(path, &fresh, &info) && !(errno == ENOENT && MakeKey(path) && ReadKey(path, &fresh, &info))) {
    if (error != nullptr) *error = "cannot read or make the token key " + path + ": " + strerror(errno);
    return false;
  }
  cache.path = path;
  cache.checkedAt = now;
  cache.dev = info.st_dev;
  cache.ino = info.st_ino;
  cache.key = fresh;
  *key = fresh;
  return true;
}

std::string SignToken(const std::string& key, const SharingLink& link, int64_t expires) {
  return link.id + "." + std::to_string(expires) + "." + Mac(key, link, expires);
}

bool ParseToken(const std::string& token, std::string* linkId, int64_t* expires) {
  const size_t first = token.find('.');
  const size_t second = first == std::string::npos ? first : token.find('.', first + 1);
  if (second == std::string::npos || first == 0 || token.size() - second - 1 != kMacHexLength) return false;
  const std::string digits = token.substr(first + 1, second - first - 1);
  if (!AllDigits(digits) || digits.size() > kMaxExpiryDigits) return false;
  *linkId = token.substr(0, first);
  *expires = static_cast<int64_t>(std::stoll(digits));
  return true;
}

bool TokenMatches(const std::string& key, const SharingLink& link, const std::string& token) {
  std::string linkId;
  int64_t expires = 0;
  if (!ParseToken(token, &linkId, &expires) || linkId != link.id) return false;
  const std::string expected = SignToken(key, link, expires);
  return expected.size() == token.size() &&
         ZANT::SameBytes(expected.data(), token.data(), token.size());
}

}  // namespace plyth_services
