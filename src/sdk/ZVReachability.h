#pragma once

#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/RouteSource.h"
#include "platform/dispatch/TaskHandle.h"

namespace zivora {

namespace dispatch {
class Queue;
}

inline constexpr char kZVReachabilityChangedNotification[] =
    "kZVNetworkReachabilityChangedNotification";

// Where ZVReachability reads the routes and the interfaces' kinds.
struct ZVReachabilityOptions {
  // Where the interfaces' kinds are read: <sysfsRoot>/class/net/<name>/uevent.
  std::filesystem::path sysfsRoot = "/sys";
  // Makes the route source; the default opens an rtnetlink socket.
  std::function<std::unique_ptr<platform::RouteSource>()> routeSource = nullptr;
};

// Classifies the device's connection as none (0), local network (1) or
// mobile network (2). The device is reachable when a default route exists;
// it is on the mobile network when that route's interface is a WWAN device
// (DEVTYPE=wwan in its uevent). The classification goes through the same
// flags as the status rules expect, so those rules hold unchanged.
class ZVReachability : public std::enable_shared_from_this<ZVReachability> {
 public:
  using NetworkStatus = std::int64_t;
  static constexpr NetworkStatus NotReachable = 0;
  static constexpr NetworkStatus ReachableViaWiFi = 1;
  static constexpr NetworkStatus ReachableViaWWAN = 2;

  static constexpr std::uint32_t kFlagReachable = 0x2;
  static constexpr std::uint32_t kFlagConnectionRequired = 0x4;
  static constexpr std::uint32_t kFlagConnectionAutomatic = 0x8;
  static constexpr std::uint32_t kFlagInterventionRequired = 0x10;
  static constexpr std::uint32_t kFlagConnectionOnDemand = 0x20;
  static constexpr std::uint32_t kFlagIsWWAN = 0x40000;

  using Options = ZVReachabilityOptions;

  // How often the notifier looks for change notices (a non-blocking check
  // on the listeners' own queue: no thread waits on the socket).
  static constexpr std::chrono::milliseconds kPollInterval{500};

  using Listener = std::function<void(const std::string& notification, ZVReachability& object)>;

  // Every host name and address is judged by the default route alone.
  static std::shared_ptr<ZVReachability> reachabilityWithHostName(const std::string& hostName,
                                                                  Options options = {}) noexcept;
  static std::shared_ptr<ZVReachability> reachabilityWithAddress(const sockaddr* address,
                                                                 Options options = {}) noexcept;
  // The zero IPv4 address: "the internet".
  static std::shared_ptr<ZVReachability> reachabilityForInternetConnection(
      Options options = {}) noexcept;

  ~ZVReachability();

  // Listeners hear kZVReachabilityChangedNotification on `queue`, the
  // queue the caller runs on, each time the status changes.
  void addListener(Listener listener);
  bool startNotifier(std::shared_ptr<dispatch::Queue> queue) noexcept;
  void stopNotifier() noexcept;

  static NetworkStatus networkStatusForFlags(std::uint32_t flags) noexcept;
  bool connectionRequired() noexcept;
  NetworkStatus currentReachabilityStatus() noexcept;
  // The flags that the routes give now; nothing when they cannot be read.
  std::optional<std::uint32_t> currentFlags();

 private:
  ZVReachability(std::unique_ptr<platform::RouteSource> source, Options options);
  static std::shared_ptr<ZVReachability> make(Options options);
  bool isWwan(const std::string& interface) const;
  void poll();

  std::unique_ptr<platform::RouteSource> reachabilityRef_;
  Options options_;
  std::mutex mutex_;
  std::vector<Listener> listeners_;
  dispatch::TaskHandle timer_;
  std::optional<NetworkStatus> lastStatus_;
};

}  // namespace zivora
