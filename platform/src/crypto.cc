#include "zant/crypto.h"

#include <sys/random.h>

#include <cerrno>

#include <openssl/evp.h>

namespace ZANT {

namespace {

// Fetched once: with EVP_sha256() every digest looks the algorithm up among
// the providers again, which shows on the request path (token checks).
const EVP_MD* Sha256Algorithm() {
  static const EVP_MD* algorithm = [] {
    const EVP_MD* fetched = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    return fetched != nullptr ? fetched : EVP_sha256();
  }();
  return algorithm;
}

}  // namespace

bool FillRandom(unsigned char* bytes, size_t count) {
  size_t got = 0;
  while (got < count) {
    ssize_t n = getrandom(bytes + got, count - got, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    got += static_cast<size_t>(n);
  }
  return true;
}

std::string HexEncode(const unsigned char* bytes, size_t count) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(count * 2);
  for (size_t i = 0; i < count; ++i) {
    out += kDigits[bytes[i] >> 4];
    out += kDigits[bytes[i] & 0x0f];
  }
  return out;
}

std::string Sha256Hex(const std::string& data) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_Digest(data.data(), data.size(), digest, &length, Sha256Algorithm(), nullptr) != 1) {
    return std::string();
  }
  return HexEncode(digest, length);
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
  return HexEncode(digest, size);
}

}  // namespace ZANT
