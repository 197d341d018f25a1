// The appliance's user database "/usr/zant/etc/users" (placed by RootPath),
// for the sign-in code and the administration command line. ZANTUserGet
// (vlibc.h) reads the same file.
//
// One user a line, seven fields separated by ":":
//   name:uid:gid:full name:home:flags:password
// flags is a comma list of "admin" and "disabled" (may be empty); password
// is "pbkdf2-sha256$<iterations>$<salt hex>$<hash hex>", or empty for a user
// who cannot sign in. Blank lines and lines starting with "#" are skipped,
// as are lines that do not have seven well-formed fields.
//
// Readers need no lock: writers replace the file atomically (a temporary
// file renamed over it) while holding an exclusive flock on
// "/usr/zant/etc/users.lock", so concurrent writers lose no change.
// Comments and unrelated lines survive every change.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace ZANT {
namespace UserDB {

extern const char kUsersFile[];  // "/usr/zant/etc/users"
extern const char kLockFile[];   // "/usr/zant/etc/users.lock"

// Automatic uids start here.
constexpr uid_t kFirstAutoUid = 1026;
// The group of ordinary users, for callers that have no better choice.
constexpr gid_t kUsersGid = 100;
// Work factor of new password hashes.
constexpr int kHashIterations = 100000;

struct User {
  std::string name;
  uid_t uid = 0;
  gid_t gid = 0;
  std::string fullName;
  std::string home;
  bool admin = false;
  bool disabled = false;
  std::string password;  // the stored hash, or empty
};

enum class Status {
  kOk = 0,
  kBadParameter,   // empty name, or a field holding ":" or a line break
  kNoSuchUser,
  kUserExists,     // the name is taken
  kUidInUse,       // an explicit uid is taken
  kFileOpen,       // the database or its lock cannot be opened
  kFileWrite,      // the new database cannot be written
  kCrypto,         // hashing failed (no random bytes)
  kDisabled,       // Authenticate: the account is disabled
  kWrongPassword,  // Authenticate: no password set, or another one
};
const char* StatusText(Status status);

// "pbkdf2-sha256$<iterations>$<salt hex>$<hash hex>" of `password` with a
// fresh 16-byte random salt and a 32-byte PBKDF2-HMAC-SHA256 hash; empty
// when no random bytes could be had. `iterations` below kHashIterations
// are raised to it.
std::string HashPassword(const std::string& password, int iterations = kHashIterations);
// True when `stored` is a hash of `password`. The hashes are compared in
// constant time; an empty or malformed `stored` never matches.
bool CheckPassword(const std::string& password, const std::string& stored);

// One database line, and back. ParseLine is false for comments, blank and
// malformed lines.
bool ParseLine(const std::string& line, User* user);
std::string FormatLine(const User& user);

// Every user, in file order. kFileOpen when the file cannot be read.
Status ListUsers(std::vector<User>* users);
Status FindUser(const std::string& name, User* user);

// Adds `user` with `password` hashed (empty: cannot sign in; user.password
// is ignored). uid 0 picks one past the highest uid from kFirstAutoUid up;
// the uid given is written back into `user`. The database and its
// directory are made when missing.
Status AddUser(User* user, const std::string& password);
Status RemoveUser(const std::string& name);
Status SetFlags(const std::string& name, bool admin, bool disabled);

// The sign-in check: kOk and the user when the name exists, the account is
// enabled and the password matches. The hashing work is the same for an
// unknown name, so that timing does not tell which names exist.
Status Authenticate(const std::string& name, const std::string& password, User* user);

}  // namespace UserDB
}  // namespace ZANT
