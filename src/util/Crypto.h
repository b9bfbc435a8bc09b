#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace zivora {

// The digests, encodings and random bytes the SDK takes from the system's
// cryptography library. Declared here for the helpers and subsystems; the
// Linux implementation defines it, so that no code outside it names the
// library.
class Crypto {
 public:
  using Md5Digest = std::array<std::uint8_t, 16>;

  // Fills `out` from the system's cryptographically secure random source;
  // false when the source has nothing to give.
  static bool randomBytes(std::span<std::uint8_t> out) noexcept;
  // The MD5 digest of `bytes`; nil when the library fails.
  static std::optional<Md5Digest> md5(std::string_view bytes) noexcept;
  // Standard base64 of `bytes`, padded, on one line.
  static std::string base64(std::string_view bytes);
};

}  // namespace zivora
