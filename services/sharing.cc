#include "sharing.h"

#include "clock.h"
#include <syslog.h>

#include "crypto.h"
#include "service_errors.h"
#include "tokens.h"
#include "zant/userdb.h"

namespace plyth_services {

namespace {

#define LINK_COLUMNS "id, permanent_link, password_hash, expires, role, created, credential_generation"

void ReadLink(const Statement& row, SharingLink* link) {
  link->id = row.Text(0);
  link->permanent_link = row.Text(1);
  link->password_hash = row.Text(2);
  link->expires = row.Int(3);
  if (!ParseGrantableRole(row.Text(4), &link->role)) link->role = Role::kNone;
  link->created = row.Int(5);
  link->credential_generation = row.Int(6);
}

int CountRecentFailures(Store& store, const std::string& id, const std::string& client, int64_t now,
                        int64_t* count) {
  Statement query(store.Db(),
                  "SELECT COUNT(*) FROM auth_failures WHERE sharing_link = ?1 AND client = ?2 AND at > ?3");
  if (!query.Ok()) return kErrStore;
  query.Bind(1, id).Bind(2, client).Bind(3, now - kThrottleWindow);
  if (!query.Row()) return kErrStore;
  *count = query.Int(0);
  return kOk;
}

// The count is read again under the write lock: attempts that all passed
// the first look while others were checking their passwords are refused
// here instead of being recorded past the limit.
int RecordFailure(Store& store, const std::string& id, const std::string& client, int64_t now) {
  return store.Write(
      [&]() -> int {
        int64_t failures = 0;
        int rc = CountRecentFailures(store, id, client, now, &failures);
        if (rc != kOk) return rc;
        if (failures >= kThrottleFailures) return kErrTooManyAttempts;
        Statement prune(store.Db(), "DELETE FROM auth_failures WHERE at <= ?1");
        prune.Bind(1, now - kThrottleWindow);
        Statement insert(store.Db(), "INSERT INTO auth_failures (sharing_link, client, at) VALUES (?1, ?2, ?3)");
        insert.Bind(1, id).Bind(2, client).Bind(3, now);
        return prune.Run() && insert.Run() ? kOk : kErrStore;
      },
      kErrStore);
}

int LoadKeyOrLog(std::string* key) {
  std::string error;
  if (LoadTokenKey(key, &error)) return kOk;
  syslog(LOG_ERR, "plyth-services: %s", error.c_str());
  return kErrStore;
}

int IssueToken(const SharingLink& link, int64_t now, std::string* token) {
  std::string key;
  int rc = LoadKeyOrLog(&key);
  if (rc != kOk) return rc;
  int64_t expires = now + kTokenLifetime;
  if (link.expires != 0 && link.expires < expires) expires = link.expires;
  *token = SignToken(key, link, expires);
  return kOk;
}

}  // namespace

bool IsExpired(const SharingLink& link, int64_t now) { return link.expires != 0 && now >= link.expires; }

int FindSharingLink(Store& store, const std::string& id, SharingLink* link) {
  Statement query(store.Db(), "SELECT " LINK_COLUMNS " FROM sharing_links WHERE id = ?1");
  if (!query.Ok()) return kErrStore;
  query.Bind(1, id);
  int rc = query.Step();
  if (rc == SQLITE_DONE) return kErrNoSuchSharingLink;
  if (rc != SQLITE_ROW) return kErrStore;
  ReadLink(query, link);
  return kOk;
}

int ListSharingLinks(Store& store, std::vector<SharingLink>* links) {
  Statement query(store.Db(), "SELECT " LINK_COLUMNS " FROM sharing_links ORDER BY created, id");
  if (!query.Ok()) return kErrStore;
  links->clear();
  int rc;
  while ((rc = query.Step()) == SQLITE_ROW) {
    links->emplace_back();
    ReadLink(query, &links->back());
  }
  return rc == SQLITE_DONE ? kOk : kErrStore;
}

int CreateSharingLink(Store& store, const Item& item, const std::string& password, int64_t expires,
                      Role role, SharingLink* made) {
  SharingLink link;
  link.id = RandomId(kLinkIdLength);
  link.permanent_link = item.permanent_link;
  if (!password.empty()) link.password_hash = ZANT::UserDB::HashPassword(password);
  link.expires = expires;
  link.role = role;
  link.created = Now();
  if (link.id.empty() || (!password.empty() && link.password_hash.empty())) return kErrStore;
  int rc = store.Write(
      [&]() -> int {
        Statement insert(store.Db(), "INSERT INTO sharing_links (" LINK_COLUMNS
                                     ") VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)");
        insert.Bind(1, link.id)
            .Bind(2, link.permanent_link)
            .Bind(3, link.password_hash)
            .Bind(4, link.expires)
            .Bind(5, std::string(RoleName(link.role)))
            .Bind(6, link.created)
            .Bind(7, link.credential_generation);
        return insert.Run() ? kOk : kErrStore;
      },
      kErrStore);
  if (rc == kOk) *made = link;
  return rc;
}

int RevokeSharingLink(Store& store, const std::string& id) {
  return store.Write(
      [&]() -> int {
        Statement remove(store.Db(), "DELETE FROM sharing_links WHERE id = ?1");
        remove.Bind(1, id);
        if (!remove.Run()) return kErrStore;
        if (store.Changes() == 0) return kErrNoSuchSharingLink;
        Statement failures(store.Db(), "DELETE FROM auth_failures WHERE sharing_link = ?1");
        failures.Bind(1, id);
        return failures.Run() ? kOk : kErrStore;
      },
      kErrStore);
}

int SetSharingLinkPassword(Store& store, const std::string& id, const std::string& password) {
  std::string hash;
  if (!password.empty() && (hash = ZANT::UserDB::HashPassword(password)).empty()) return kErrStore;
  return store.Write(
      [&]() -> int {
        Statement update(store.Db(),
                         "UPDATE sharing_links SET password_hash = ?2,"
                         " credential_generation = credential_generation + 1 WHERE id = ?1");
        update.Bind(1, id).Bind(2, hash);
        if (!update.Run()) return kErrStore;
        if (store.Changes() == 0) return kErrNoSuchSharingLink;
        Statement failures(store.Db(), "DELETE FROM auth_failures WHERE sharing_link = ?1");
        failures.Bind(1, id);
        return failures.Run() ? kOk : kErrStore;
      },
      kErrStore);
}

int AuthenticateSharingLink(Store& store, const std::string& id, const std::string& password,
                            const std::string& client, std::string* token) {
  const int64_t now = Now();
  SharingLink link;
  int rc = FindSharingLink(store, id, &link);
  if (rc != kOk) return rc;
  if (IsExpired(link, now)) return kErrLinkExpired;
  if (!link.password_hash.empty()) {
    if (password.empty()) return kErrPasswordNeeded;
    int64_t failures = 0;
    rc = CountRecentFailures(store, id, client, now, &failures);
    if (rc != kOk) return rc;
    if (failures >= kThrottleFailures) return kErrTooManyAttempts;
    if (!ZANT::UserDB::CheckPassword(password, link.password_hash)) {
      rc = RecordFailure(store, id, client, now);
      return rc != kOk ? rc : kErrPasswordNeeded;
    }
  }
  return IssueToken(link, now, token);
}

int RoleFromToken(Store& store, const std::string& token, const std::string& permanentLink,
                  Role* role) {
  std::string linkId;
  int64_t tokenExpires = 0;
  if (!ParseToken(token, &linkId, &tokenExpires)) return kErrBadToken;
  SharingLink link;
  int rc = FindSharingLink(store, linkId, &link);
  if (rc == kErrNoSuchSharingLink) return kErrBadToken;
  if (rc != kOk) return rc;
  std::string key;
  if ((rc = LoadKeyOrLog(&key)) != kOk) return rc;
  const int64_t now = Now();
  if (!TokenMatches(key, link, token) || now >= tokenExpires || IsExpired(link, now) ||
      link.permanent_link != permanentLink) {
    return kErrBadToken;
  }
  *role = link.role;
  return kOk;
}

}  // namespace plyth_services
