#include "util/Utf8.h"

namespace zivora {

bool Utf8::isValid(std::string_view bytes) noexcept {
  std::size_t i = 0;
  const std::size_t n = bytes.size();
  auto at = [&](std::size_t k) { return static_cast<unsigned char>(bytes[k]); };
  auto continuation = [&](std::size_t k) { return k < n && (at(k) & 0xC0) == 0x80; };
  while (i < n) {
    unsigned char lead = at(i);
    if (lead < 0x80) {
      ++i;
    } else if (lead >= 0xC2 && lead <= 0xDF) {
      if (!continuation(i + 1)) return false;
      i += 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      if (!continuation(i + 1) || !continuation(i + 2)) return false;
      unsigned char second = at(i + 1);
      if (lead == 0xE0 && second < 0xA0) return false;  // overlong
      if (lead == 0xED && second > 0x9F) return false;  // surrogate
      i += 3;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      if (!continuation(i + 1) || !continuation(i + 2) || !continuation(i + 3)) return false;
      unsigned char second = at(i + 1);
      if (lead == 0xF0 && second < 0x90) return false;  // overlong
      if (lead == 0xF4 && second > 0x8F) return false;  // past U+10FFFF
      i += 4;
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace zivora
