#include "util/ZVHash.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>

#include "util/Crypto.h"
#include "util/Guard.h"
#include "util/Hex.h"
#include "util/Upcalls.h"
#include "util/ZVException.h"

namespace zivora {

namespace {

constexpr std::string_view kRandomAlphabet = "abcdefghijklmnopqrstuvwxyz0123456789";
constexpr std::size_t kRandomStringLength = 24;

long long millisecondsSince1970() {
  auto now = upcalls::wallNow();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count();
}

// A uniformly drawn index below `bound`, from the system's CSPRNG with
// rejection of the biased tail.
unsigned uniformBelow(unsigned bound) {
  const unsigned limit = 256u - 256u % bound;
  std::uint8_t byte = 0;
  do {
    if (!Crypto::randomBytes({&byte, 1})) throw std::runtime_error("no random bytes");
  } while (byte >= limit);
  return byte % bound;
}

}  // namespace

std::string ZVHash::md5Hex(std::optional<std::string_view> text) {
  if (!text) throw ZVException("NSInvalidArgumentException", "nil text to hash");
  auto digest = Crypto::md5(*text);
  if (!digest) throw std::runtime_error("md5 failed");
  return toHex(std::string_view(reinterpret_cast<const char*>(digest->data()), digest->size()));
}

std::string ZVHash::hashMD5(std::optional<std::string_view> text) noexcept {
  return guarded("ZVHash", "hashMD5", std::string("exeption-generate-md5"),
                 [&] { return md5Hex(text); });
}

std::string ZVHash::randomString() noexcept {
  return guarded("ZVHash", "randomString", std::string("errorgeneraterandom"), [] {
    std::string text = fmt::format("{}", millisecondsSince1970());
    while (text.size() < kRandomStringLength) {
      text.push_back(kRandomAlphabet[uniformBelow(static_cast<unsigned>(kRandomAlphabet.size()))]);
    }
    return text;
  });
}

}  // namespace zivora
