// Sharing links (public links that may carry a password and an expiry
// time), the tokens that unlock them, and the throttle on wrong passwords.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "access.h"
#include "items.h"
#include "store.h"

namespace plyth_services {

// Wrong passwords for one sharing link from one client address: once this
// many have been recorded within the window, further attempts from that
// address answer kErrTooManyAttempts until the oldest of them leaves the
// window. Other addresses keep their own count, so that a stranger's
// guesses never lock the recipient out.
constexpr int kThrottleFailures = 5;
constexpr int64_t kThrottleWindow = 600;  // seconds
// A token works for this long, and never past its link's expiry time.
constexpr int64_t kTokenLifetime = 24 * 60 * 60;

struct SharingLink {
  std::string id;
  std::string permanent_link;
  std::string password_hash;  // "pbkdf2-sha256$..." (the user database's form); empty: none
  int64_t expires = 0;        // seconds since the epoch; 0: never
  Role role = Role::kViewer;
  int64_t created = 0;
  // Raised by every password change: tokens signed before it stop working.
  int64_t credential_generation = 0;
};

// A link whose expiry time has come: `now` equal to the expiry counts.
bool IsExpired(const SharingLink& link, int64_t now);

// kOk, kErrNoSuchSharingLink or kErrStore.
int FindSharingLink(Store& store, const std::string& id, SharingLink* link);
int ListSharingLinks(Store& store, std::vector<SharingLink>* links);
// A new link to `item`; an empty password makes a link without one.
int CreateSharingLink(Store& store, const Item& item, const std::string& password, int64_t expires,
                      Role role, SharingLink* made);
// Deletes the link (its tokens stop working) and its recorded failures.
int RevokeSharingLink(Store& store, const std::string& id);
// Sets a new password (empty: none) and ends every token of the link and
// its recorded failures. kOk, kErrNoSuchSharingLink or kErrStore.
int SetSharingLinkPassword(Store& store, const std::string& id, const std::string& password);

// The unlock for a caller at `client` (its address): kOk and a token, or
// kErrNoSuchSharingLink, kErrLinkExpired, kErrTooManyAttempts,
// kErrPasswordNeeded, kErrStore. Checked in that order. An empty password
// is never counted as a wrong one and never throttled, so that a page may
// always ask whether a password is needed. Only a wrong password writes to
// the store: its count is checked again and it is recorded in one write
// transaction, so that a burst of guesses records no more than the limit.
int AuthenticateSharingLink(Store& store, const std::string& id, const std::string& password,
                            const std::string& client, std::string* token);

// The role a token grants on the item with `permanentLink`: kOk, or
// kErrBadToken for a malformed, forged or expired token, a token of an
// expired or revoked link, of an earlier password, or of a link to another
// item; kErrStore when the key cannot be had.
int RoleFromToken(Store& store, const std::string& token, const std::string& permanentLink,
                  Role* role);

}  // namespace plyth_services
