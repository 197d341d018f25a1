// Random bytes, hex text, SHA-256 digests, HMAC and PBKDF2 over SHA-256,
// shared by the platform, the framework and the services.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace ZANT {

// Fills `bytes` from the kernel's random source; false when it cannot.
bool FillRandom(unsigned char* bytes, size_t count);
// Lower-case hex text of `bytes`.
std::string HexEncode(const unsigned char* bytes, size_t count);
// Lower-case hex SHA-256 of `data`; empty if the digest cannot be computed.
std::string Sha256Hex(const std::string& data);

// Lower-case hex HMAC-SHA256 of `message` under `key`.
std::string HmacSha256Hex(const std::string& key, const std::string& message);
// PBKDF2 with HMAC-SHA256: `size` bytes derived from `password` and `salt`.
std::vector<unsigned char> Pbkdf2Sha256(const std::string& password, const std::vector<unsigned char>& salt,
                                        unsigned iterations, size_t size);
// Whether `size` bytes at `a` and `b` are equal, in a time that does not
// depend on where they differ (for secrets).
bool SameBytes(const void* a, const void* b, size_t size);

// Incremental SHA-256, for contents read in pieces.
class Sha256 {
 public:
  Sha256();
  ~Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;
  void Update(const void* data, size_t size);
  std::string FinishHex();  // once

 private:
  void* ctx_;
};

}  // namespace ZANT
