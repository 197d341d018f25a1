// The user database: lookups for the base library (ZANTUserGet), password
// hashes and the locked, atomic changes of the administration tools.
#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <sstream>

#include "file_util.h"
#include "zant/file_cache.h"
#include "zant/appliance.h"
#include "zant/crypto.h"
#include "zant/userdb.h"
#include "zant/vlibc.h"

namespace ZANT {
namespace UserDB {

const char kUsersFile[] = "/usr/zant/etc/users";
const char kLockFile[] = "/usr/zant/etc/users.lock";

namespace {

const char kHashScheme[] = "pbkdf2-sha256";
constexpr int kSaltBytes = 16;
constexpr int kHashBytes = 32;
// Stored hashes name their own work factor; this bound keeps a doctored
// file from stalling a sign-in for minutes.
constexpr long kMaxIterations = 10000000;

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (true) {
    size_t end = text.find(separator, start);
    parts.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) return parts;
    start = end + 1;
  }
}

bool ParseId(const std::string& text, unsigned long* id) {
  if (text.empty() || text.size() > 10) return false;
  unsigned long value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + static_cast<unsigned long>(c - '0');
  }
  // (uid_t)-1 means "no id" to the system calls.
  if (value >= 0xFFFFFFFFul) return false;
  *id = value;
  return true;
}


int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool FromHex(const std::string& hex, std::vector<unsigned char>* bytes) {
  if (hex.empty() || hex.size() % 2 != 0) return false;
  bytes->clear();
  for (size_t i = 0; i < hex.size(); i += 2) {
    int high = HexValue(hex[i]);
    int low = HexValue(hex[i + 1]);
    if (high < 0 || low < 0) return false;
    bytes->push_back(static_cast<unsigned char>(high * 16 + low));
  }
  return true;
}

// A field that would break the line format.
bool BadField(const std::string& field) {
  return field.find_first_of(":\n\r") != std::string::npos;
}

bool ValidUser(const User& user) {
  return !user.name.empty() && user.name[0] != '#' && !BadField(user.name) &&
         !BadField(user.fullName) && !BadField(user.home) && !BadField(user.password);
}

Status ReadLines(std::vector<std::string>* lines, bool missingIsEmpty) {
  lines->clear();
  auto content = FileCache::Read(RootPath(kUsersFile));
  if (!content->opened) {
    return (missingIsEmpty && content->error == ENOENT) ? Status::kOk : Status::kFileOpen;
  }
  if (S_ISDIR(content->status.st_mode) || !content->read) return Status::kFileOpen;
  const std::string& bytes = content->bytes;
  size_t start = 0;
  while (start < bytes.size()) {
    size_t newline = bytes.find('\n', start);
    size_t end = newline == std::string::npos ? bytes.size() : newline;
    lines->emplace_back(bytes, start, end - start);
    start = end + 1;
  }
  return Status::kOk;
}

// Replaces the database by `lines`: a temporary file beside it, renamed over
// it, so that a reader sees the old or the new file and never half of one.
Status WriteLines(const std::vector<std::string>& lines) {
  std::string path = RootPath(kUsersFile);
  std::string temp = path + ".tmp." + std::to_string(getpid());
  mode_t mode = 0600;  // the file holds password hashes
  struct stat status;
  if (stat(path.c_str(), &status) == 0) mode = status.st_mode & 07777;
  int fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
  if (fd < 0) return Status::kFileWrite;
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  bool ok = fchmod(fd, mode) == 0 && FileUtil::WriteAll(fd, text) && fsync(fd) == 0;
  ok = close(fd) == 0 && ok;
  if (!ok || rename(temp.c_str(), path.c_str()) != 0) {
    unlink(temp.c_str());
    return Status::kFileWrite;
  }
  return Status::kOk;
}

// Runs `change` on the lines of the database under the writers' lock and
// writes the result when it answers kOk.
Status Modify(const std::function<Status(std::vector<std::string>&)>& change) {
  std::string lockPath = RootPath(kLockFile);
  FileUtil::MakeParentDirs(lockPath);
  int lock = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (lock < 0) return Status::kFileOpen;
  while (flock(lock, LOCK_EX) != 0) {
    if (errno != EINTR) {
      close(lock);
      return Status::kFileOpen;
    }
  }
  std::vector<std::string> lines;
  Status status = ReadLines(&lines, true);
  if (status == Status::kOk) status = change(lines);
  if (status == Status::kOk) status = WriteLines(lines);
  close(lock);  // releases the lock
  return status;
}

// Index of the line of `name`, or -1.
long FindLine(const std::vector<std::string>& lines, const std::string& name, User* user) {
  for (size_t i = 0; i < lines.size(); ++i) {
    if (ParseLine(lines[i], user) && user->name == name) return static_cast<long>(i);
  }
  return -1;
}

Status ChangeUser(const std::string& name, const std::function<void(User&)>& edit) {
  if (name.empty()) return Status::kBadParameter;
  return Modify([&](std::vector<std::string>& lines) {
    User user;
    long index = FindLine(lines, name, &user);
    if (index < 0) return Status::kNoSuchUser;
    edit(user);
    lines[index] = FormatLine(user);
    return Status::kOk;
  });
}

}  // namespace

const char* StatusText(Status status) {
  switch (status) {
    case Status::kOk: return "ok";
    case Status::kBadParameter: return "bad parameter";
    case Status::kNoSuchUser: return "no such user";
    case Status::kUserExists: return "user exists";
    case Status::kUidInUse: return "uid in use";
    case Status::kFileOpen: return "cannot open the user database";
    case Status::kFileWrite: return "cannot write the user database";
    case Status::kCrypto: return "cannot hash the password";
    case Status::kDisabled: return "account disabled";
    case Status::kWrongPassword: return "wrong password";
  }
  return "unknown";
}

std::string HashPassword(const std::string& password, int iterations) {
  if (iterations < kHashIterations) iterations = kHashIterations;
  std::vector<unsigned char> salt(kSaltBytes);
  if (!ZANT::FillRandom(salt.data(), kSaltBytes)) return std::string();
  const std::vector<unsigned char> hash =
      ZANT::Pbkdf2Sha256(password, salt, static_cast<unsigned>(iterations), kHashBytes);
  return std::string(kHashScheme) + "$" + std::to_string(iterations) + "$" +
         ZANT::HexEncode(salt.data(), salt.size()) + "$" + ZANT::HexEncode(hash.data(), hash.size());
}

bool CheckPassword(const std::string& password, const std::string& stored) {
  std::vector<std::string> parts = Split(stored, '$');
  if (parts.size() != 4 || parts[0] != kHashScheme) return false;
  const std::string& count = parts[1];
  if (count.empty() || count.size() > 8 ||
      count.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  long iterations = std::strtol(count.c_str(), nullptr, 10);
  std::vector<unsigned char> salt, expected;
  if (iterations < 1 || iterations > kMaxIterations || !FromHex(parts[2], &salt) ||
      !FromHex(parts[3], &expected) || expected.empty() || expected.size() > 64) {
    return false;
  }
  const std::vector<unsigned char> actual =
      ZANT::Pbkdf2Sha256(password, salt, static_cast<unsigned>(iterations), expected.size());
  return ZANT::SameBytes(actual.data(), expected.data(), expected.size());
}

bool ParseLine(const std::string& line, User* user) {
  if (line.empty() || line[0] == '#') return false;
  std::string text = line;
  if (text.back() == '\r') text.pop_back();
  std::vector<std::string> fields = Split(text, ':');
  if (fields.size() != 7 || fields[0].empty()) return false;
  unsigned long uid = 0, gid = 0;
  if (!ParseId(fields[1], &uid) || !ParseId(fields[2], &gid)) return false;
  User parsed;
  parsed.name = fields[0];
  parsed.uid = static_cast<uid_t>(uid);
  parsed.gid = static_cast<gid_t>(gid);
  parsed.fullName = fields[3];
  parsed.home = fields[4];
  // Unknown flags are ignored, so that older readers accept newer files.
  for (const std::string& flag : Split(fields[5], ',')) {
    if (flag == "admin") parsed.admin = true;
    if (flag == "disabled") parsed.disabled = true;
  }
  parsed.password = fields[6];
  *user = parsed;
  return true;
}

std::string FormatLine(const User& user) {
  std::string flags;
  if (user.admin) flags = "admin";
  if (user.disabled) flags += flags.empty() ? "disabled" : ",disabled";
  std::ostringstream line;
  line << user.name << ':' << user.uid << ':' << user.gid << ':' << user.fullName << ':'
       << user.home << ':' << flags << ':' << user.password;
  return line.str();
}

Status ListUsers(std::vector<User>* users) {
  std::vector<std::string> lines;
  Status status = ReadLines(&lines, false);
  if (status != Status::kOk) return status;
  users->clear();
  User user;
  for (const std::string& line : lines) {
    if (ParseLine(line, &user)) users->push_back(user);
  }
  return Status::kOk;
}

Status FindUser(const std::string& name, User* user) {
  if (name.empty()) return Status::kBadParameter;
  std::vector<std::string> lines;
  Status status = ReadLines(&lines, false);
  if (status != Status::kOk) return status;
  return FindLine(lines, name, user) < 0 ? Status::kNoSuchUser : Status::kOk;
}

Status AddUser(User* user, const std::string& password) {
  user->password.clear();
  if (!ValidUser(*user)) return Status::kBadParameter;
  if (!password.empty()) {
    // Hashed before the lock is taken: it is the slow part.
    user->password = HashPassword(password);
    if (user->password.empty()) return Status::kCrypto;
  }
  return Modify([user](std::vector<std::string>& lines) {
    uid_t highest = kFirstAutoUid - 1;
    User other;
    for (const std::string& line : lines) {
      if (!ParseLine(line, &other)) continue;
      if (other.name == user->name) return Status::kUserExists;
      if (user->uid != 0 && other.uid == user->uid) return Status::kUidInUse;
      if (other.uid > highest) highest = other.uid;
    }
    if (user->uid == 0) user->uid = highest + 1;
    lines.push_back(FormatLine(*user));
    return Status::kOk;
  });
}

Status RemoveUser(const std::string& name) {
  if (name.empty()) return Status::kBadParameter;
  return Modify([&name](std::vector<std::string>& lines) {
    User user;
    long index = FindLine(lines, name, &user);
    if (index < 0) return Status::kNoSuchUser;
    lines.erase(lines.begin() + index);
    return Status::kOk;
  });
}

Status SetFlags(const std::string& name, bool admin, bool disabled) {
  return ChangeUser(name, [=](User& user) {
    user.admin = admin;
    user.disabled = disabled;
  });
}

Status Authenticate(const std::string& name, const std::string& password, User* user) {
  // Checked against when there is no real hash, so that every attempt costs
  // the same work.
  static const std::string kDecoy = std::string(kHashScheme) + "$" +
                                    std::to_string(kHashIterations) + "$" +
                                    std::string(2 * kSaltBytes, '0') + "$" +
                                    std::string(2 * kHashBytes, '0');
  User found;
  Status status = name.empty() ? Status::kNoSuchUser : FindUser(name, &found);
  bool hasHash = status == Status::kOk && !found.password.empty();
  bool matches = CheckPassword(password, hasHash ? found.password : kDecoy) && hasHash;
  if (status != Status::kOk) return status;
  if (!matches) return Status::kWrongPassword;
  if (found.disabled) return Status::kDisabled;
  *user = found;
  return Status::kOk;
}

}  // namespace UserDB
}  // namespace ZANT

namespace {

// This file's name as the last error reports it.
const char kSource[] = "users.cc";

char* Duplicate(const std::string& text) { return strdup(text.c_str()); }

}  // namespace

extern "C" {

void ZANTUserFree(PZANTUSER user) {
  if (user == nullptr) return;
  std::free(user->szName);
  std::free(user->szFullName);
  std::free(user->szHome);
  std::free(user);
}

int ZANTUserGet(const char* name, PZANTUSER* user) {
  if (name == nullptr || name[0] == '\0' || user == nullptr) {
    VLIBCErrSet(VLIBC_ERR_BAD_PARAMETER, kSource, __LINE__);
    return -1;
  }
  ZANT::UserDB::User found;
  switch (ZANT::UserDB::FindUser(name, &found)) {
    case ZANT::UserDB::Status::kOk:
      break;
    case ZANT::UserDB::Status::kNoSuchUser:
      VLIBCErrSet(VLIBC_ERR_NO_SUCH_USER, kSource, __LINE__);
      return -1;
    default:
      VLIBCErrSet(VLIBC_ERR_FILE_OPEN, kSource, __LINE__);
      return -1;
  }
  PZANTUSER record = static_cast<PZANTUSER>(std::calloc(1, sizeof(ZANTUSER)));
  if (record != nullptr) {
    record->szName = Duplicate(found.name);
    record->szFullName = Duplicate(found.fullName);
    record->szHome = Duplicate(found.home);
  }
  if (record == nullptr || record->szName == nullptr || record->szFullName == nullptr ||
      record->szHome == nullptr) {
    ZANTUserFree(record);
    VLIBCErrSet(VLIBC_ERR_OUT_OF_MEMORY, kSource, __LINE__);
    return -1;
  }
  record->uid = found.uid;
  record->gid = found.gid;
  record->isAdmin = found.admin ? 1 : 0;
  record->isDisabled = found.disabled ? 1 : 0;
  *user = record;
  return 0;
}

}  // extern "C"
