#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <climits>

#include "util/Crypto.h"

namespace zivora {

bool Crypto::randomBytes(std::span<std::uint8_t> out) noexcept {
  while (!out.empty()) {
    const std::size_t chunk = std::min<std::size_t>(out.size(), INT_MAX);
    if (RAND_bytes(out.data(), static_cast<int>(chunk)) != 1) return false;
    out = out.subspan(chunk);
  }
  return true;
}

namespace {

// The digest's implementation, looked up in the providers once: named by
// EVP_md5() instead, every digest would look it up again (a locked search
// of the provider cache that took longer than hashing a short text).
const EVP_MD* md5Implementation() {
  static const EVP_MD* const fetched = EVP_MD_fetch(nullptr, "MD5", nullptr);
  return fetched ? fetched : EVP_md5();
}

}  // namespace

std::optional<Crypto::Md5Digest> Crypto::md5(std::string_view bytes) noexcept {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest, &length, md5Implementation(), nullptr) != 1 ||
      length != Md5Digest().size()) {
    return std::nullopt;
  }
  Md5Digest result;
  std::copy(digest, digest + length, result.begin());
  return result;
}

std::string Crypto::base64(std::string_view bytes) {
  std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                               reinterpret_cast<const unsigned char*>(bytes.data()),
                               static_cast<int>(bytes.size()));
  out.resize(static_cast<std::size_t>(length));
  return out;
}

}  // namespace zivora
