// Any stored analytics line through the conversion to the wire form. A line
// either converts, builds nothing, or is an error; nothing may crash.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "analytics/ZVPConvertSavedEventForSend.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view line(reinterpret_cast<const char*>(data), size);
  zivora::ZVPConvertSavedEventForSend converted(line, 1767225600);
  if (converted.isError() && converted.getEvent()) __builtin_trap();
  return 0;
}
