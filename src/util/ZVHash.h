#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zivora {

class ZVHash {
 public:
  // Lowercase hexadecimal MD5 of the UTF-8 bytes; "exeption-generate-md5"
  // when hashing fails (nil included).
  static std::string hashMD5(std::optional<std::string_view> text) noexcept;

  // 24 characters: the wall clock in whole milliseconds since 1970, then
  // characters drawn uniformly from [a-z0-9]; "errorgeneraterandom" on failure.
  static std::string randomString() noexcept;

  // The digest itself; throws on nil or when the crypto library fails.
  static std::string md5Hex(std::optional<std::string_view> text);
};

}  // namespace zivora
