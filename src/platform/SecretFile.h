#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/SecretStore.h"

namespace zivora::platform {

// The on-disk form of one item of the file secret store: a header line and
// one line per field, every value in hexadecimal so that no byte needs
// escaping:
//   zivora-secret 1
//   application 6170
//   service ...
//   account ...
//   group
//   data ...
// Anything else (truncated, reordered, odd digits) does not parse.
struct SecretFile {
  SecretItemKey key;
  std::string data;

  std::string format() const;
  static std::optional<SecretFile> parse(std::string_view text) noexcept;
};

}  // namespace zivora::platform
