#include "analytics/ZVPOrderId.h"

#include <limits>
#include <stdexcept>

#include "platform/UserDefaults.h"
#include "sdk/Context.h"
#include "util/Guard.h"

namespace zivora {

namespace {

constexpr char kClass[] = "ZVPOrderId";
constexpr char kOrderKey[] = "tsp-profiling-order";
// The application's own defaults, as opposed to the named suites.
constexpr char kStandardSuite[] = "standard";

platform::UserDefaults& defaultsOf(const std::shared_ptr<platform::UserDefaults>& defaults) {
  if (!defaults) throw std::runtime_error("no user defaults");
  return *defaults;
}

}  // namespace

ZVPOrderId::ZVPOrderId(std::shared_ptr<platform::UserDefaults> defaults)
    : defaults_(std::move(defaults)) {}

std::shared_ptr<ZVPOrderId> ZVPOrderId::sharedOrder() noexcept {
  return guarded(
      kClass, "sharedOrder", std::shared_ptr<ZVPOrderId>(),
      [] {
        auto context = Context::current();
        if (!context) throw std::runtime_error("no context");
        // The context's instance slot is the once-guard.
        return context->instance<ZVPOrderId>([&] {
          auto order = std::make_shared<ZVPOrderId>(context->userDefaults(kStandardSuite));
          order->load();
          return order;
        });
      },
      GuardReport::Backoffice);
}

std::int32_t ZVPOrderId::currentOrder() noexcept {
  return guarded(
      kClass, "currentOrder", std::int32_t{0},
      [] {
        auto order = sharedOrder();
        if (!order) throw std::runtime_error("no order");
        return order->getCurrentOrder();
      },
      GuardReport::Backoffice);
}

std::int32_t ZVPOrderId::nextOrder() noexcept {
  return guarded(
      kClass, "nextOrder", std::int32_t{0},
      [] {
        auto order = sharedOrder();
        if (!order) throw std::runtime_error("no order");
        return order->getNextOrder();
      },
      GuardReport::Backoffice);
}

void ZVPOrderId::save() noexcept {
  guarded(
      kClass, "save",
      [&] {
        auto& defaults = defaultsOf(defaults_);
        if (!defaults.setValue(kOrderKey, static_cast<std::int64_t>(order_.load())))
          throw std::runtime_error("order not saved");
        defaults.synchronize();
      },
      GuardReport::Backoffice);
}

void ZVPOrderId::load() noexcept {
  guarded(
      kClass, "load",
      [&] {
        auto stored = defaultsOf(defaults_).integerForKey(kOrderKey).value_or(0);
        order_.store(static_cast<std::int32_t>(stored));
      },
      GuardReport::Backoffice);
}

std::int32_t ZVPOrderId::getCurrentOrder() noexcept { return order_.load(); }

std::int32_t ZVPOrderId::getNextOrder() noexcept {
  return guarded(
      kClass, "getNextOrder", std::int32_t{0},
      [&] {
        std::int32_t current = order_.load();
        std::int32_t next = current == std::numeric_limits<std::int32_t>::max() ? 0 : current + 1;
        order_.store(next);
        save();
        return next;
      },
      GuardReport::Backoffice);
}

}  // namespace zivora
