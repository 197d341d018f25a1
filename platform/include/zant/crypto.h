// Random bytes, hex text and SHA-256 digests, shared by the platform, the
// framework and the services.
#pragma once

#include <cstddef>
#include <string>

namespace ZANT {

// Fills `bytes` from the kernel's random source; false when it cannot.
bool FillRandom(unsigned char* bytes, size_t count);
// Lower-case hex text of `bytes`.
std::string HexEncode(const unsigned char* bytes, size_t count);
// Lower-case hex SHA-256 of `data`; empty if the digest cannot be computed.
std::string Sha256Hex(const std::string& data);

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
