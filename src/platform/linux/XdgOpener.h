#pragma once

#include <string>

#include "platform/UrlOpener.h"
#include "platform/dispatch/Queue.h"

namespace zivora::platform {

// Opens web addresses with xdg-open, the desktop's way of handing an address
// to the user's browser. The address is the program's one argument, passed
// with posix_spawnp and never through a shell, so nothing in it is
// interpreted. Only http and https addresses made of printable ASCII are
// handed on: another scheme could start a local program or read a file.
// The child is waited for on `reaper` (the global queue) by polling, so
// no pool thread blocks for as long as xdg-open runs.
class XdgOpener final : public UrlOpener {
 public:
  explicit XdgOpener(dispatch::Queue& reaper);

  bool canOpenURL(const std::string& url) override;
  bool openURL(const std::string& url) override;

 private:
  static void reapLater(dispatch::Queue& queue, int pid, dispatch::Duration wait);

  dispatch::Queue& reaper_;
};

}  // namespace zivora::platform
