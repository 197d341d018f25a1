#include "crypto.h"

#include <vector>

#include <openssl/evp.h>

namespace plyth_services {

namespace {

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
constexpr unsigned kAlphabetSize = 62;
// Bytes at or above this are dropped so that every character is equally likely.
constexpr unsigned kUnbiasedLimit = 248;  // 4 * 62

// Fetched once: with EVP_sha256() every digest would look the algorithm up
// among the providers again.
const EVP_MD* Sha256Algorithm() {
  static const EVP_MD* algorithm = [] {
    const EVP_MD* fetched = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    return fetched != nullptr ? fetched : EVP_sha256();
  }();
  return algorithm;
}

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

Sha256::Sha256() : ctx_(EVP_MD_CTX_new()) {
  EVP_DigestInit_ex(static_cast<EVP_MD_CTX*>(ctx_), Sha256Algorithm(), nullptr);
}

Sha256::~Sha256() { EVP_MD_CTX_free(static_cast<EVP_MD_CTX*>(ctx_)); }

void Sha256::Update(const void* data, size_t size) {
  EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(ctx_), data, size);
}

std::string Sha256::FinishHex() {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  EVP_DigestFinal_ex(static_cast<EVP_MD_CTX*>(ctx_), digest, &size);
  return ZANT::HexEncode(digest, size);
}

}  // namespace plyth_services
