// Any text as a colour from the ad server: it reads as a colour whose
// components all lie in [0, 1] when, without its '#' signs, it has 3, 4, 6
// or 8 characters, and is refused with ZVException otherwise.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "ui/UIColorUtilities.h"
#include "util/ZVException.h"

using zivora::ui::UIColorUtilities;

namespace {

bool inUnitRange(double value) { return value >= 0.0 && value <= 1.0; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto digits =
      text.size() - static_cast<std::size_t>(std::count(text.begin(), text.end(), '#'));
  const bool wellFormed = digits == 3 || digits == 4 || digits == 6 || digits == 8;
  try {
    const auto color = UIColorUtilities::colorWithHexString(text);
    if (!wellFormed || !inUnitRange(color.red) || !inUnitRange(color.green) ||
        !inUnitRange(color.blue) || !inUnitRange(color.alpha))
      __builtin_trap();
  } catch (const zivora::ZVException&) {
    if (wellFormed) __builtin_trap();
  }
  return 0;
}
