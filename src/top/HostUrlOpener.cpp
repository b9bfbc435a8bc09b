#include "top/HostUrlOpener.h"

#include <utility>

#include "util/WebAddress.h"
#include "util/ZVLog.h"

namespace zivora {

HostUrlOpener::HostUrlOpener(std::function<bool(const std::string&)> open)
    : open_(std::move(open)) {}

bool HostUrlOpener::canOpenURL(const std::string& url) { return WebAddress::isWeb(url); }

bool HostUrlOpener::openURL(const std::string& url) {
  if (!canOpenURL(url)) {
    ZVLog::LogWarning("[Zivora][openURL] Refused to open an address that is not http or https");
    return false;
  }
  return open_(url);
}

}  // namespace zivora
