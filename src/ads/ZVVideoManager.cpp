#include "ads/ZVVideoManager.h"

#include "ads/ZVVideoViewController.h"
#include "platform/dispatch/Runtime.h"
#include "sdk/Context.h"
#include "ui/Display.h"
#include "util/Guard.h"
#include "util/ZVLog.h"
#include "zivora/ZivoraDelegate.h"

namespace zivora {
namespace {
constexpr char kClass[] = "ZVVideoManager";
}  // namespace

ZVVideoManager::ZVVideoManager(std::shared_ptr<ZivoraDelegate> delegate)
    : delegate_(std::move(delegate)) {}

ZVVideoManager::~ZVVideoManager() {
  for (auto& [name, controller] : controllers_) controller->setDelegate({});
}

void ZVVideoManager::showVideo(const std::string& placementName) {
  guarded(kClass, "showVideo", [&] {
    if (placementName.empty()) {
      ZVLog::system("[Zivora][showVideo] Error! PlacementName is nil or empty.");
      return;
    }
    if (refusedForDisplay(placementName)) return;
    controllerFor(placementName)->show();
  });
}

void ZVVideoManager::cacheVideo(const std::string& placementName) {
  guarded(kClass, "cacheVideo", [&] {
    if (placementName.empty()) {
      ZVLog::system("[Zivora][cacheVideo] Error! PlacementName is nil or empty.");
      return;
    }
    if (refusedForDisplay(placementName)) return;
    controllerFor(placementName)->cache();
  });
}

bool ZVVideoManager::isReadyVideo(const std::string& placementName) {
  return guarded(kClass, "isReadyVideo", false, [&] {
    std::lock_guard lock(mutex_);
    auto found = controllers_.find(placementName);
    return found != controllers_.end() && found->second->isReady();
  });
}

bool ZVVideoManager::isRequestShow() {
  return guarded(kClass, "isRequestShow", false, [&] {
    std::lock_guard lock(mutex_);
    for (const auto& [name, controller] : controllers_) {
      if (controller->invokedShow()) return true;
    }
    return false;
  });
}

void ZVVideoManager::hide(const std::shared_ptr<ZVVideoViewController>& controller) {
  guarded(kClass, "hide", [&] { remove(controller); });
}

void ZVVideoManager::didError(std::uint64_t error,
                              const std::shared_ptr<ZVVideoViewController>& controller) {
  guarded(kClass, "didError", [&] {
    if (!remove(controller)) return;
    Context::require()->runtime().mainQueue().async(
        [delegate = delegate_, placement = controller->placementName(), error] {
          delegate->videoDidFailToLoad(placement, error);
        });
  });
}

bool ZVVideoManager::refusedForDisplay(const std::string& placementName) {
  auto context = Context::require();
  if (ui::Display::of(context)->availability() != ui::Display::Availability::Unavailable)
    return false;
  ZVLog::LogWarning("[Zivora][{}] Error! No display for the ad screens.", placementName);
  context->runtime().mainQueue().async([delegate = delegate_, placementName] {
    delegate->videoDidFailToLoad(placementName, ZivoraErrorDisplayUnavailable);
  });
  return true;
}

std::shared_ptr<ZVVideoViewController> ZVVideoManager::controllerFor(
    const std::string& placementName) {
  std::lock_guard lock(mutex_);
  auto& controller = controllers_[placementName];
  if (!controller) {
    controller = ZVVideoViewController::create(delegate_);
    controller->setPlacementName(placementName);
    controller->setDelegate(weak_from_this());
  }
  return controller;
}

bool ZVVideoManager::remove(const std::shared_ptr<ZVVideoViewController>& controller) {
  if (!controller || controller->placementName().empty()) return false;
  controller->setDelegate({});
  std::lock_guard lock(mutex_);
  auto found = controllers_.find(controller->placementName());
  if (found != controllers_.end() && found->second == controller) controllers_.erase(found);
  return true;
}

}  // namespace zivora
