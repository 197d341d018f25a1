#include "crypto.h"

#include <vector>

namespace plyth_services {

namespace {

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
constexpr unsigned kAlphabetSize = 62;
// Bytes at or above this are dropped so that every character is equally likely.
constexpr unsigned kUnbiasedLimit = 248;  // 4 * 62

}  // namespace

std::string RandomId(size_t length) {
  std::string out;
  out.reserve(length);
  std::vector<unsigned char> buffer(length + 16);
  while (out.size() < length) {
    if (!ZANT::FillRandom(buffer.data(), buffer.size())) return std::string();
    for (unsigned char byte : buffer) {
      if (byte >= kUnbiasedLimit) continue;
      out += kAlphabet[byte % kAlphabetSize];
      if (out.size() == length) break;
    }
  }
  return out;
}

}  // namespace plyth_services
