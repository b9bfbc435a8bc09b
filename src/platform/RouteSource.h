#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace zivora::platform {

// Where the device's routes come from: the kernel's routing table in
// production, a script in tests.
class RouteSource {
 public:
  virtual ~RouteSource() = default;

  // The interface that carries the default route (IPv4 first, then IPv6);
  // nothing when there is no default route.
  virtual std::optional<std::string> defaultRouteInterface() = 0;
  // Blocks until links, addresses or routes may have changed (true), or
  // until `timeout` passes or interrupt() is called (false).
  virtual bool waitForChange(std::chrono::milliseconds timeout) = 0;
  // Wakes a waitForChange() in progress; later waits return at once.
  virtual void interrupt() = 0;
};

}  // namespace zivora::platform
