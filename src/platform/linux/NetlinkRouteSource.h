#pragma once

#include <memory>

#include "platform/RouteSource.h"

namespace zivora::platform {

// Routes from the kernel over rtnetlink: a dump of the routing table for
// the default route, and a socket subscribed to link, address and route
// changes to wait on. No daemon is involved. The sockets close with the
// object.
class NetlinkRouteSource final : public RouteSource {
 public:
  // Null when the netlink socket cannot be opened.
  static std::unique_ptr<NetlinkRouteSource> open();
  ~NetlinkRouteSource() override;

  std::optional<std::string> defaultRouteInterface() override;
  bool waitForChange(std::chrono::milliseconds timeout) override;
  void interrupt() override;

 private:
  NetlinkRouteSource(int events, int wake) : events_(events), wake_(wake) {}
  std::optional<std::string> defaultRouteInterface(int family);

  int events_;  // subscribed to change notices
  int wake_;    // eventfd that interrupt() signals
};

}  // namespace zivora::platform
