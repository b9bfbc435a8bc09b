// Any text as the analytics endpoint's reply, and as a stored line that the
// older send path extends with its time and checksum fields. The check
// accepts exactly the replies that hold the acknowledgement once spaces are
// dropped; extending a line never fails for a line of any length or field
// numbering, and only ever appends.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "analytics/ZVPHttpRequest.h"
#include "analytics/ZVPLog.h"
#include "zivora/ZVConstants.h"

using zivora::ZVPHttpRequest;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool quiet = (zivora::ZVPLog::logEnable(false), true);
  (void)quiet;
  const std::string text(reinterpret_cast<const char*>(data), size);

  std::string compact = text;
  compact.erase(std::remove(compact.begin(), compact.end(), ' '), compact.end());
  const bool acknowledged = compact.find(zivora::TS_VALID_RESPONSE) != std::string::npos;
  if (ZVPHttpRequest::validateResponse(text) != acknowledged) __builtin_trap();

  auto extended = ZVPHttpRequest::addAdditionParams(text);
  if (extended && extended->compare(0, text.size(), text) != 0) __builtin_trap();
  return 0;
}
