#pragma once

#include <string>

namespace zivora::platform {

// Hands an address to the system (a browser, a store application).
// Implementations are thread-safe and never block on the opened program.
class UrlOpener {
 public:
  virtual ~UrlOpener() = default;
  // Whether `openURL` would hand the address on.
  virtual bool canOpenURL(const std::string& url) = 0;
  // Hands the address on; false when it was refused (and logged).
  virtual bool openURL(const std::string& url) = 0;
};

}  // namespace zivora::platform
