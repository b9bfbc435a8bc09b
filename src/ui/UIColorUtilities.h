#pragma once

#include <string>

#include "ui/Color.h"

namespace zivora::ui {

// Colours as the ad server writes them: "#RGB", "#ARGB", "#RRGGBB" or
// "#AARRGGBB", the "#" optional.
class UIColorUtilities {
 public:
  // Throws ZVException "Invalid color value" for any other length.
  static Color colorWithHexString(const std::string& hexString);
  // The hexadecimal component of `length` digits at `start`, a single digit
  // doubled ("A" reads as "AA"), divided by 255. Digits past what the
  // scanner reads count as 0.
  static double colorComponentFrom(const std::string& string, std::size_t start,
                                   std::size_t length);
};

}  // namespace zivora::ui
