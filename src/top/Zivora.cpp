// The public facade: checks that the SDK was initialised and hands each call
// to the hidden instance, inside the exception guard.
#include "zivora/Zivora.h"

#include <cmath>

#include "top/ZivoraInstance.h"
#include "util/Guard.h"
#include "util/ZVLog.h"

namespace zivora {

namespace {

constexpr char kClass[] = "Zivora";
constexpr char kAlreadyInitialized[] = "[Zivora] Warning: Zivora already initialzed!";
constexpr char kNotInitialized[] =
    "[Zivora] Error: Zivora didn't initialized. \nPlease, Initialize Zivora!";
constexpr char kIncorrectPurchase[] = "[Zivora][purchaseEvent] Error: Incorect arguments";

// The instance, or null after printing the "not initialised" message.
std::shared_ptr<ZivoraInstance> initializedInstance() {
  auto instance = ZivoraInstance::current();
  if (!instance) ZVLog::system(kNotInitialized);
  return instance;
}

bool isPresent(const std::optional<std::string>& text) { return text && !text->empty(); }

}  // namespace

void Zivora::initializeWithAppId(const std::string& appId) noexcept {
  initializeWithAppId(appId, HostOptions{});
}

void Zivora::initializeWithAppId(const std::string& appId, const HostOptions& options) noexcept {
  guarded(kClass, "initializeWithAppId", [&] {
    if (ZivoraInstance::current()) {
      ZVLog::system(kAlreadyInitialized);
      return;
    }
    ZivoraInstance::start(appId, options, RuntimeOptions{});
  });
}

void Zivora::setAppUserId(std::optional<std::string> userId) noexcept {
  guarded(kClass, "setAppUserId", [&] {
    if (auto instance = initializedInstance()) instance->setAppUserId(std::move(userId));
  });
}

void Zivora::setDelegate(std::shared_ptr<ZivoraDelegate> delegate) noexcept {
  guarded(kClass, "setDelegate", [&] {
    // Without an instance there is no dispatcher: the delegate is dropped.
    if (auto instance = ZivoraInstance::current()) instance->setDelegate(std::move(delegate));
  });
}

std::shared_ptr<ZivoraDelegate> Zivora::delegate() noexcept {
  return guarded(kClass, "delegate", std::shared_ptr<ZivoraDelegate>(), [] {
    auto instance = ZivoraInstance::current();
    return instance ? instance->delegate() : nullptr;
  });
}

void Zivora::showVideo(const std::string& placement) noexcept {
  guarded(kClass, "showVideo", [&] {
    if (auto instance = initializedInstance()) instance->showVideo(placement);
  });
}

void Zivora::cacheVideo(const std::string& placement) noexcept {
  guarded(kClass, "cacheVideo", [&] {
    if (auto instance = initializedInstance()) instance->cacheVideo(placement);
  });
}

bool Zivora::isReadyVideo(const std::string& placement) noexcept {
  return guarded(kClass, "isReadyVideo", false, [&] {
    auto instance = initializedInstance();
    return instance && instance->isReadyVideo(placement);
  });
}

namespace {

void checkedPurchase(double amount, std::optional<std::string> currency,
                     std::optional<std::string> transactionId, std::optional<std::string> receipt) {
  // A NaN or infinite amount could not travel in a JSON body either.
  if (!std::isfinite(amount) || amount < 0 || !isPresent(currency) || !isPresent(transactionId)) {
    ZVLog::system(kIncorrectPurchase);
    return;
  }
  if (auto instance = initializedInstance()) {
    instance->purchaseEvent(amount, *currency, *transactionId, std::move(receipt));
  }
}

}  // namespace

void Zivora::purchaseEvent(double amount, std::optional<std::string> currency,
                           std::optional<std::string> transactionId) noexcept {
  guarded(kClass, "purchaseEvent", [&] {
    checkedPurchase(amount, std::move(currency), std::move(transactionId), std::nullopt);
  });
}

void Zivora::purchaseEvent(double amount, std::optional<std::string> currency,
                           std::optional<std::string> transactionId, std::string receipt) noexcept {
  guarded(kClass, "purchaseEvent", [&] {
    checkedPurchase(amount, std::move(currency), std::move(transactionId), std::move(receipt));
  });
}

void Zivora::logEnable(bool enable) noexcept {
  guarded(kClass, "logEnable", [&] { ZVLog::logEnable(enable); });
}

void Zivora::requestMotivatedRewards() noexcept {
  guarded(kClass, "requestMotivatedRewards", [&] {
    if (auto instance = initializedInstance()) instance->requestMotivatedRewards();
  });
}

void Zivora::removeMotivatedRewards(const std::vector<std::string>& rewardIds) noexcept {
  guarded(kClass, "removeMotivatedRewards", [&] {
    if (auto instance = initializedInstance()) instance->removeMotivatedRewards(rewardIds);
  });
}

bool Zivora::handleEvent(const void* sdlEvent) noexcept {
  return guarded(kClass, "handleEvent", false, [&] {
    auto instance = ZivoraInstance::current();
    return instance && instance->handleEvent(sdlEvent);
  });
}

bool Zivora::isPresenting() noexcept {
  return guarded(kClass, "isPresenting", false, [] {
    auto instance = ZivoraInstance::current();
    return instance && instance->isPresenting();
  });
}

bool Zivora::performScreenAction(ZivoraScreenAction action) noexcept {
  return guarded(kClass, "performScreenAction", false, [&] {
    auto instance = ZivoraInstance::current();
    return instance && instance->performScreenAction(action);
  });
}

std::optional<ZivoraScreenImage> Zivora::captureScreen() noexcept {
  return guarded(kClass, "captureScreen", std::optional<ZivoraScreenImage>(), [] {
    auto instance = ZivoraInstance::current();
    return instance ? instance->captureScreen() : std::nullopt;
  });
}

bool Zivora::hasQueuedEvents() noexcept {
  return guarded(kClass, "hasQueuedEvents", false, [] {
    auto instance = ZivoraInstance::current();
    return instance && instance->hasQueuedEvents();
  });
}

void Zivora::shutdown() noexcept {
  guarded(kClass, "shutdown", [] { ZivoraInstance::reset(); });
}

std::size_t Zivora::pump() noexcept {
  return guarded(kClass, "pump", std::size_t{0}, [] {
    auto instance = ZivoraInstance::current();
    return instance ? instance->pump() : std::size_t{0};
  });
}

}  // namespace zivora
