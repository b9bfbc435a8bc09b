#pragma once

#include <functional>
#include <string>

#include "platform/UrlOpener.h"

namespace zivora {

// The host's opener (for example a game's overlay browser). It sees only
// web addresses, the ones the system's opener would take, so it is never
// handed a file or a script address.
class HostUrlOpener final : public platform::UrlOpener {
 public:
  explicit HostUrlOpener(std::function<bool(const std::string&)> open);
  bool canOpenURL(const std::string& url) override;
  bool openURL(const std::string& url) override;

 private:
  std::function<bool(const std::string&)> open_;
};

}  // namespace zivora
