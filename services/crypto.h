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

using ZANT::Sha256;
using ZANT::Sha256Hex;

}  // namespace plyth_services
