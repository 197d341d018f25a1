// Sharing tokens without a token table: a token names its link and its
// expiry time and carries an HMAC-SHA256 over them and over the link's
// current credentials, under a key of this appliance. Issuing one writes
// nothing; it stops working when the link is revoked, its password is
// changed, it or the link expires, or the link's owner is removed (which
// removes the link).
#pragma once

#include <cstdint>
#include <string>

namespace plyth_services {

struct SharingLink;

// Appliance path of the key: 32 random bytes, mode 0600, made by the first
// process that issues or checks a token. It lies beside the store, which
// the service user can write (the configuration directory may be root's).
extern const char kTokenKeyPath[];  // "/var/packages/BrindlexPlyth/target/var/sharing-token.key"
constexpr size_t kTokenKeyBytes = 32;

// The key, read once per process (again when the file is replaced); made
// when missing. False, with a message, when it cannot be read or made.
bool LoadTokenKey(std::string* key, std::string* error);

// "<link id>.<expiry>.<64 hex digits>": letters, digits and dots only, so
// that it fits a cookie as it is and never reads as a JSON value.
std::string SignToken(const std::string& key, const SharingLink& link, int64_t expires);

// The link id and expiry a token claims; false when it is not shaped like a token.
bool ParseToken(const std::string& token, std::string* linkId, int64_t* expires);

// True when `token` was signed for `link` as it is now (same credential
// generation) with that key. Compared in constant time.
bool TokenMatches(const std::string& key, const SharingLink& link, const std::string& token);

}  // namespace plyth_services
