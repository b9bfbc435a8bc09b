// Content-Range and Content-Length values as any server might send them:
// the parsers never crash or overflow, and their answers stay in range.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "resources/ZVResourceLoader.h"

using zivora::ZVResourceLoader;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  // "<Content-Range>\n<Content-Length>"
  const auto newline = input.find('\n');
  const std::string_view range = input.substr(0, newline);
  const std::string_view length =
      newline == std::string_view::npos ? std::string_view() : input.substr(newline + 1);

  // The first number is a run of digits: never negative.
  const std::int32_t offset = ZVResourceLoader::parseRange(range);
  if (offset < -1) std::abort();
  const bool hasDigit = range.find_first_of("0123456789") != std::string_view::npos;
  if (hasDigit == (offset == -1)) std::abort();

  // No "/" or nothing after the last one means "unknown".
  const std::int32_t total = ZVResourceLoader::parseRangeForSize(range);
  const auto slash = range.rfind('/');
  if ((slash == std::string_view::npos || slash + 1 == range.size()) && total != -1) std::abort();

  // A leading sign decides the sign of the value; no digits give 0.
  const std::int64_t value = ZVResourceLoader::integerValue(length);
  std::string_view trimmed = length;
  while (!trimmed.empty() &&
         (trimmed.front() == ' ' || (trimmed.front() >= '\t' && trimmed.front() <= '\r'))) {
    trimmed.remove_prefix(1);
  }
  if (value < 0 && (trimmed.empty() || trimmed.front() != '-')) std::abort();
  if (value > 0 && !trimmed.empty() && trimmed.front() == '-') std::abort();

  // The full size of a resumed file: offset plus length, never overflowing.
  if (offset >= 0) {
    const std::int32_t full = ZVResourceLoader::rangeFullSize(offset, length);
    if (value >= 0 && full < offset) std::abort();
    if (value <= 0 && full > offset) std::abort();
  }
  return 0;
}
