#include "zant_host/session.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <vector>

#include "zant/appliance.h"
#include "zant/crypto.h"
#include "zant/json_util.h"

namespace zant_host {

const char kSessionDir[] = "/var/lib/zant/sessions";
const char kSessionCookie[] = "id";

namespace {

bool IsLowerHex(const std::string& text, size_t length) {
  if (text.size() != length) return false;
  for (char c : text) {
    if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
  }
  return true;
}

bool MakeDirs(const std::string& path) {
  for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    const std::string part = path.substr(0, slash);
    if (mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) return false;
    if (slash == std::string::npos) return true;
  }
}

bool WriteWhole(const std::string& path, const std::string& content) {
  const std::string temp = path + ".tmp." + std::to_string(getpid());
  int fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  size_t done = 0;
  while (done < content.size()) {
    ssize_t n = write(fd, content.data() + done, content.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  bool ok = done == content.size() && fsync(fd) == 0;
  ok = close(fd) == 0 && ok;
  if (ok && rename(temp.c_str(), path.c_str()) == 0) return true;
  unlink(temp.c_str());
  return false;
}

bool Expired(const Json::Value& record, int64_t now) {
  return !record.isObject() || !record["expires"].isInt64() || record["expires"].asInt64() <= now;
}

// `count` random bytes from getrandom as lower-case hex; empty on failure.
std::string RandomHex(size_t count) {
  std::vector<unsigned char> bytes(count);
  if (!ZANT::FillRandom(bytes.data(), count)) return std::string();
  return ZANT::HexEncode(bytes.data(), count);
}

bool IsSessionId(const std::string& id) { return IsLowerHex(id, 64); }

}  // namespace

std::string RandomToken() {
  // Letters only, without "e" and "E": the token travels unquoted in query
  // strings, where a text that reads as JSON (a number) would be decoded.
  static const char kAlphabet[] = "abcdfghjkmnpqrstuvwxyzABCDFGHJKL";  // 32 letters
  unsigned char bytes[26];
  if (!ZANT::FillRandom(bytes, sizeof(bytes))) return std::string();
  std::string token;
  for (unsigned char b : bytes) token += kAlphabet[b & 31];
  return token;
}

SessionStore::SessionStore() = default;
SessionStore::SessionStore(const std::string& dir) : dir_(dir) {}

std::string SessionStore::Dir() const { return dir_.empty() ? ZANT::RootPath(kSessionDir) : dir_; }

std::string SessionStore::FileOf(const std::string& id) const {
  return Dir() + "/" + Sha256Hex(id);
}

bool SessionStore::Create(const std::string& user, uid_t uid, bool admin, const std::string& lang,
                          int64_t now, Session* session) {
  Session made;
  made.id = RandomHex(32);
  made.token = RandomToken();
  if (made.id.empty() || made.token.empty()) return false;
  made.user = user;
  made.uid = uid;
  made.admin = admin;
  made.lang = lang;
  made.created = now;
  made.expires = now + kSessionLifetime;

  Json::Value record(Json::objectValue);
  record["user"] = made.user;
  record["uid"] = static_cast<Json::UInt>(made.uid);
  record["admin"] = made.admin;
  record["token"] = made.token;
  record["lang"] = made.lang;
  record["created"] = static_cast<Json::Int64>(made.created);
  record["expires"] = static_cast<Json::Int64>(made.expires);
  if (!MakeDirs(Dir()) || !WriteWhole(FileOf(made.id), ZANT::JsonToString(record) + "\n")) {
    return false;
  }
  *session = made;
  return true;
}

bool SessionStore::Load(const std::string& id, int64_t now, Session* session) {
  if (!IsSessionId(id)) return false;
  const std::string path = FileOf(id);
  Json::Value record;
  if (!ZANT::JsonFromFile(path, record)) return false;
  if (Expired(record, now)) {
    unlink(path.c_str());
    return false;
  }
  if (!record["user"].isString() || !record["uid"].isUInt() || !record["token"].isString()) {
    return false;
  }
  session->id = id;
  session->user = record["user"].asString();
  session->uid = static_cast<uid_t>(record["uid"].asUInt());
  session->admin = record["admin"].asBool();
  session->token = record["token"].asString();
  session->lang = record["lang"].isString() ? record["lang"].asString() : std::string();
  session->created = record["created"].isInt64() ? record["created"].asInt64() : 0;
  session->expires = record["expires"].asInt64();
  return true;
}

void SessionStore::Remove(const std::string& id) {
  if (IsSessionId(id)) unlink(FileOf(id).c_str());
}

namespace {

// Calls `visit` with the path and record of each session file that reads.
// An unreadable file is left alone: it may be being replaced right now.
void ForEachSession(const std::string& dir, const std::function<void(const std::string&, const Json::Value&)>& visit) {
  DIR* d = opendir(dir.c_str());
  if (d == nullptr) return;
  while (struct dirent* entry = readdir(d)) {
    const std::string name = entry->d_name;
    if (!IsLowerHex(name, 64)) continue;
    Json::Value record;
    const std::string path = dir + "/" + name;
    if (ZANT::JsonFromFile(path, record)) visit(path, record);
  }
  closedir(d);
}

}  // namespace

void SessionStore::Sweep(int64_t now) {
  ForEachSession(Dir(), [now](const std::string& path, const Json::Value& record) {
    if (Expired(record, now)) unlink(path.c_str());
  });
}

int SessionStore::RemoveUser(const std::string& user) {
  int removed = 0;
  ForEachSession(Dir(), [&](const std::string& path, const Json::Value& record) {
    if (record.isObject() && record["user"].isString() && record["user"].asString() == user &&
        unlink(path.c_str()) == 0) {
      ++removed;
    }
  });
  return removed;
}

std::string SessionCookieValue(const std::string& id, bool secure) {
  return std::string(kSessionCookie) + "=" + id + "; Path=/; HttpOnly; SameSite=Lax" +
         (secure ? "; Secure" : "");
}

std::string ClearedSessionCookieValue(bool secure) {
  return std::string(kSessionCookie) +
         "=; Expires=Thu, 01 Jan 1970 00:00:00 GMT; Path=/; HttpOnly; SameSite=Lax" +
         (secure ? "; Secure" : "");
}

bool RequestCarriesSessionToken(const ZANT::APIRequest& request) {
  const std::string& expected = request.GetSessionToken();
  if (expected.empty()) return false;
  std::string sent;
  const Json::Value& param = request.GetParamRef("ZantToken", Json::Value());
  if (param.isString()) {
    sent = param.asString();
  } else {
    sent = request.GetEnv("HTTP_X_ZANTTOKEN", Json::Value("")).asString();
  }
  if (sent.size() != expected.size()) return false;
  unsigned char diff = 0;
  for (size_t i = 0; i < sent.size(); ++i) {
    diff |= static_cast<unsigned char>(sent[i] ^ expected[i]);
  }
  return diff == 0;
}

}  // namespace zant_host
