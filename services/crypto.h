// Random identifiers and digests.
#pragma once

#include <cstddef>
#include <string>

#include "zant/crypto.h"

namespace plyth_services {

// `length` characters of [A-Za-z0-9] from the kernel's random source; empty
// when no random bytes could be had.
std::string RandomId(size_t length);

// Lengths of the identifiers handed out. A 16-character id carries about
// 95 bits.
constexpr size_t kLinkIdLength = 16;
constexpr size_t kFileIdLength = 16;

using ZANT::Sha256Hex;

// Incremental SHA-256 for file contents.
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

}  // namespace plyth_services
