// Sign-in sessions: one file per session under "/var/lib/zant/sessions/"
// (appliance path), named by the SHA-256 of the session id so that the
// directory listing never gives a usable id away.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "zant/crypto.h"

#include "zant/webapi.h"

namespace zant_host {

extern const char kSessionDir[];      // "/var/lib/zant/sessions"
extern const char kSessionCookie[];   // "id"
constexpr int64_t kSessionLifetime = 24 * 60 * 60;  // seconds from sign-in

struct Session {
  std::string id;       // 64 lower-case hex digits (256 random bits)
  std::string user;
  uid_t uid = 0;
  bool admin = false;
  std::string token;    // "ZantToken": 26 letters (130 random bits)
  std::string lang;     // preferred UI language, may be empty
  int64_t created = 0;  // seconds since the epoch
  int64_t expires = 0;
};

// 26 random letters (no digits, no "e"), never readable as a JSON value;
// empty on failure.
std::string RandomToken();
using ZANT::Sha256Hex;

class SessionStore {
 public:
  // `dir` is a host path; by default RootPath(kSessionDir) at each call.
  SessionStore();
  explicit SessionStore(const std::string& dir);

  // Makes a new session for `user` and writes it (mode 0600). False when no
  // random bytes or the file cannot be written.
  bool Create(const std::string& user, uid_t uid, bool admin, const std::string& lang,
              int64_t now, Session* session);
  // The session of `id`; false when the id is malformed, unknown, expired
  // (its file is then removed) or its file is unreadable.
  bool Load(const std::string& id, int64_t now, Session* session);
  void Remove(const std::string& id);
  // Removes every expired session file.
  void Sweep(int64_t now);
  // Removes every session of `user` (an account being removed); the count.
  int RemoveUser(const std::string& user);

  std::string FileOf(const std::string& id) const;

 private:
  std::string Dir() const;
  std::string dir_;
};

// "id=<id>; Path=/; HttpOnly; SameSite=Lax" (+ "; Secure" over HTTPS).
std::string SessionCookieValue(const std::string& id, bool secure);
// The same cookie emptied and expired.
std::string ClearedSessionCookieValue(bool secure);

// The token the client sent with a state-changing call: the "ZantToken"
// parameter, else the "X-ZantToken" header. True when it equals the
// session token of the request (compared in constant time); false when the
// request has no session token.
bool RequestCarriesSessionToken(const ZANT::APIRequest& request);

}  // namespace zant_host
