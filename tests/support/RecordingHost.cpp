#include "support/RecordingHost.h"

#include <algorithm>

namespace zivora::test {

std::size_t RecordingHost::count(const std::string& call) const {
  return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), call));
}

}  // namespace zivora::test
