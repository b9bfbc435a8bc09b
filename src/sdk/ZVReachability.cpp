#include "sdk/ZVReachability.h"

#include <fstream>

#include "platform/dispatch/Queue.h"
#include "platform/dispatch/WeakTask.h"
#include "sdk/Defaults.h"
#include "util/Guard.h"

namespace zivora {
namespace {

constexpr char kClass[] = "Reachability";

}  // namespace

ZVReachability::ZVReachability(std::unique_ptr<platform::RouteSource> source, Options options)
    : reachabilityRef_(std::move(source)), options_(std::move(options)) {}

ZVReachability::~ZVReachability() { stopNotifier(); }

std::shared_ptr<ZVReachability> ZVReachability::make(Options options) {
  std::unique_ptr<platform::RouteSource> source =
      options.routeSource ? options.routeSource() : defaults::routeSource();
  if (!source) return nullptr;
  return std::shared_ptr<ZVReachability>(new ZVReachability(std::move(source), std::move(options)));
}

std::shared_ptr<ZVReachability> ZVReachability::reachabilityWithHostName(const std::string&,
                                                                         Options options) noexcept {
  return guarded(kClass, "reachabilityWithHostName", std::shared_ptr<ZVReachability>(),
                 [&] { return make(std::move(options)); });
}

std::shared_ptr<ZVReachability> ZVReachability::reachabilityWithAddress(const sockaddr* address,
                                                                        Options options) noexcept {
  return guarded(kClass, "reachabilityWithAddress", std::shared_ptr<ZVReachability>(),
                 [&] { return address ? make(std::move(options)) : nullptr; });
}

std::shared_ptr<ZVReachability> ZVReachability::reachabilityForInternetConnection(
    Options options) noexcept {
  return guarded(kClass, "reachabilityForInternetConnection", std::shared_ptr<ZVReachability>(),
                 [&] {
                   sockaddr zero{};
                   zero.sa_family = AF_INET;
                   return reachabilityWithAddress(&zero, std::move(options));
                 });
}

void ZVReachability::addListener(Listener listener) {
  std::lock_guard lock(mutex_);
  listeners_.push_back(std::move(listener));
}

bool ZVReachability::startNotifier(std::shared_ptr<dispatch::Queue> queue) noexcept {
  return guarded(kClass, "startNotifier", false, [&] {
    if (!queue) return false;
    stopNotifier();
    {
      std::lock_guard lock(mutex_);
      lastStatus_ = currentReachabilityStatus();
    }
    std::lock_guard lock(mutex_);
    timer_ = dispatch::everyWeak(*queue, kPollInterval, weak_from_this(), {kClass, "startNotifier"},
                                 [](ZVReachability& self) { self.poll(); });
    return true;
  });
}

void ZVReachability::stopNotifier() noexcept {
  guarded(kClass, "stopNotifier", [&] {
    std::lock_guard lock(mutex_);
    timer_.cancel();
  });
}

// Runs on the listeners' queue: drains the change notices and tells the
// listeners when the status they would see has changed.
void ZVReachability::poll() {
  if (!reachabilityRef_->waitForChange(std::chrono::milliseconds(0))) return;
  NetworkStatus status = currentReachabilityStatus();
  std::vector<Listener> listeners;
  {
    std::lock_guard lock(mutex_);
    if (lastStatus_ == status) return;
    lastStatus_ = status;
    listeners = listeners_;
  }
  for (auto& listener : listeners) listener(kZVReachabilityChangedNotification, *this);
}

ZVReachability::NetworkStatus ZVReachability::networkStatusForFlags(std::uint32_t flags) noexcept {
  if ((flags & kFlagReachable) == 0) return NotReachable;
  NetworkStatus status = NotReachable;
  if ((flags & kFlagConnectionRequired) == 0) status = ReachableViaWiFi;
  if ((flags & (kFlagConnectionOnDemand | kFlagConnectionAutomatic)) != 0 &&
      (flags & kFlagInterventionRequired) == 0)
    status = ReachableViaWiFi;
  if ((flags & kFlagIsWWAN) != 0) status = ReachableViaWWAN;
  return status;
}

std::optional<std::uint32_t> ZVReachability::currentFlags() {
  auto interface = reachabilityRef_->defaultRouteInterface();
  if (!interface) return 0u;
  return kFlagReachable | (isWwan(*interface) ? kFlagIsWWAN : 0u);
}

bool ZVReachability::connectionRequired() noexcept {
  return guarded(kClass, "connectionRequired", false, [&] {
    auto flags = currentFlags();
    return flags && (*flags & kFlagConnectionRequired) != 0;
  });
}

ZVReachability::NetworkStatus ZVReachability::currentReachabilityStatus() noexcept {
  return guarded(kClass, "currentReachabilityStatus", NotReachable, [&] {
    auto flags = currentFlags();
    return flags ? networkStatusForFlags(*flags) : NotReachable;
  });
}

// An interface name never holds '/', but one from a route source is not
// trusted to be a single path component.
bool ZVReachability::isWwan(const std::string& interface) const {
  if (interface.empty() || interface == "." || interface == ".." ||
      interface.find('/') != std::string::npos)
    return false;
  std::ifstream uevent(options_.sysfsRoot / "class" / "net" / interface / "uevent");
  for (std::string line; std::getline(uevent, line);)
    if (line == "DEVTYPE=wwan") return true;
  return false;
}

}  // namespace zivora
