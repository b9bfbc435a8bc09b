#pragma once

#include <string_view>

namespace zivora {

class Utf8 {
 public:
  // Well-formed UTF-8: no overlong forms, no surrogates, nothing past U+10FFFF.
  static bool isValid(std::string_view bytes) noexcept;
};

}  // namespace zivora
