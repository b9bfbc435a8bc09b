#include "ui/UIColorUtilities.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "util/ZVException.h"

namespace zivora::ui {
namespace {

// Reads leading hexadecimal digits the way a hex scanner does: stops at the
// first character that is not one, giving 0 when none was read.
unsigned scanHex(const std::string& digits) {
  unsigned value = 0;
  for (char c : digits) {
    int digit;
    if (c >= '0' && c <= '9') {
      digit = c - '0';
    } else if (c >= 'A' && c <= 'F') {
      digit = c - 'A' + 10;
    } else {
      break;
    }
    value = value * 16 + static_cast<unsigned>(digit);
  }
  return value;
}

}  // namespace

double UIColorUtilities::colorComponentFrom(const std::string& string, std::size_t start,
                                            std::size_t length) {
  std::string digits = string.substr(start, length);
  if (digits.size() == 1) digits += digits;
  return scanHex(digits) / 255.0;
}

Color UIColorUtilities::colorWithHexString(const std::string& hexString) {
  std::string digits;
  for (char c : hexString) {
    if (c != '#') digits += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  auto at = [&](std::size_t start, std::size_t length) {
    return colorComponentFrom(digits, start, length);
  };
  switch (digits.size()) {
    case 3:
      return {at(0, 1), at(1, 1), at(2, 1), 1};
    case 4:
      return {at(1, 1), at(2, 1), at(3, 1), at(0, 1)};
    case 6:
      return {at(0, 2), at(2, 2), at(4, 2), 1};
    case 8:
      return {at(2, 2), at(4, 2), at(6, 2), at(0, 2)};
    default:
      throw ZVException("Invalid color value",
                        fmt::format("Color value {} is invalid.  It should be a hex value of the "
                                    "form #RBG, #ARGB, #RRGGBB, or #AARRGGBB",
                                    hexString));
  }
}

}  // namespace zivora::ui
