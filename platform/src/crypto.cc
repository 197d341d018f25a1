#include "zant/crypto.h"

#include <nettle/hmac.h>
#include <nettle/memops.h>
#include <nettle/pbkdf2.h>
#include <nettle/sha2.h>
#include <sys/random.h>

#include <cerrno>

namespace ZANT {

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
  Sha256 digest;
  digest.Update(data.data(), data.size());
  return digest.FinishHex();
}

std::string HmacSha256Hex(const std::string& key, const std::string& message) {
  struct hmac_sha256_ctx context;
  hmac_sha256_set_key(&context, key.size(), reinterpret_cast<const uint8_t*>(key.data()));
  hmac_sha256_update(&context, message.size(), reinterpret_cast<const uint8_t*>(message.data()));
  unsigned char digest[SHA256_DIGEST_SIZE];
  hmac_sha256_digest(&context, sizeof(digest), digest);
  return HexEncode(digest, sizeof(digest));
}

std::vector<unsigned char> Pbkdf2Sha256(const std::string& password, const std::vector<unsigned char>& salt,
                                        unsigned iterations, size_t size) {
  std::vector<unsigned char> derived(size);
  pbkdf2_hmac_sha256(password.size(), reinterpret_cast<const uint8_t*>(password.data()), iterations, salt.size(),
                     salt.data(), size, derived.data());
  return derived;
}

bool SameBytes(const void* a, const void* b, size_t size) { return memeql_sec(a, b, size) != 0; }

Sha256::Sha256() : ctx_(new sha256_ctx) { sha256_init(static_cast<sha256_ctx*>(ctx_)); }

Sha256::~Sha256() { delete static_cast<sha256_ctx*>(ctx_); }

void Sha256::Update(const void* data, size_t size) {
  sha256_update(static_cast<sha256_ctx*>(ctx_), size, static_cast<const uint8_t*>(data));
}

std::string Sha256::FinishHex() {
  unsigned char digest[SHA256_DIGEST_SIZE];
  sha256_digest(static_cast<sha256_ctx*>(ctx_), sizeof(digest), digest);
  return HexEncode(digest, sizeof(digest));
}

}  // namespace ZANT
