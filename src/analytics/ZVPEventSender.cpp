#include "analytics/ZVPEventSender.h"

#include "analytics/ZVPDeviceInfoHelper.h"
#include "analytics/ZVPEventController.h"
#include "analytics/ZVPOrderId.h"
#include "util/Guard.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

constexpr char kClass[] = "ZVPEventSender";

template <class Body>
void backoffice(const char* method, Body&& body) {
  guarded(kClass, method, std::forward<Body>(body), GuardReport::Backoffice);
}

}  // namespace

ZVPEventSender::ZVPEventSender(std::shared_ptr<ZVPDeviceInfoHelper> deviceInfo,
                               std::shared_ptr<ZVPEventController> eventController) noexcept
    : deviceInfo_(std::move(deviceInfo)), eventController_(std::move(eventController)) {}

void ZVPEventSender::sendAppOpen() noexcept {
  backoffice("sendAppOpen", [&] {
    auto& device = *deviceInfo_;
    device.sendedGameUserId_ = device.getGameUserId();
    ZVPCustomParams params;
    params.put(TS_APP_ID, device.appId());
    params.put(TS_EVENT_NAME, TS_EVENT_NAME_APP_OPEN);
    params.put(TS_GAME_USER_ID, device.sendedGameUserId_);
    params.put(TS_PLATFORM_ID_NAME, std::int32_t{device.platformId()});
    params.put(TS_RANDOM_UID, device.randomUID());
    params.put(TS_CLIENT_VERSION, device.clientVersion());
    params.put(TS_SDK_VERSION, device.SDKVersion());
    params.put(TS_CLIENT_TIMESTAMP, device.clientTimestamp());
    params.put(TS_DEVICE_ID, device.deviceId());
    params.put(TS_DEVICE_NAME, device.deviceName());
    params.put(TS_OS_VERSION, device.OSVersion());
    params.put(TS_DIMENSION_X, std::int32_t{device.dimensionX()});
    params.put(TS_DIMENSION_Y, std::int32_t{device.dimensionY()});
    params.put(TS_RAM_SIZE, device.RAMSize());
    params.put(TS_GPU_TYPE, ZVPDeviceInfoHelper::GPUType());
    params.put(TS_LANGUAGE, device.language());
    params.put(TS_BUNDLE_ID, device.clientPackageName());
    params.put(TS_ORDER, ZVPOrderId::nextOrder());
    const int limited = device.limitAdTracking();
    if (limited == 0) params.put(TS_ADVERTISING_ID, device.advertisingId());
    params.put(TS_LIMIT_AD_TRACKING, std::int32_t{limited});
    eventController_->sendEvent(params);
  });
}

ZVPCustomParams ZVPEventSender::purchase(double amount, std::optional<std::string> currency,
                                         std::optional<std::string> productId) const {
  ZVPCustomParams params;
  params.put(TS_AMOUNT, amount);
  params.put(TS_CURRENCY, std::move(currency));
  params.put(TS_PRODUCT_ID, std::move(productId));
  return params;
}

// The three-argument purchase has always reported under "sendAppOpen".
void ZVPEventSender::sendPurchase(double amount, std::optional<std::string> currency,
                                  std::optional<std::string> productId) noexcept {
  backoffice("sendAppOpen", [&] {
    sendEventUnguarded(TS_EVENT_NAME_PURCHASE,
                       purchase(amount, std::move(currency), std::move(productId)));
  });
}

void ZVPEventSender::sendPurchase(double amount, std::optional<std::string> currency,
                                  std::optional<std::string> productId,
                                  std::optional<std::string> transactionId) noexcept {
  backoffice("sendPurchase", [&] {
    auto params = purchase(amount, std::move(currency), std::move(productId));
    params.put(TS_TRANSACTION_ID, std::move(transactionId));
    sendEventUnguarded(TS_EVENT_NAME_PURCHASE, std::move(params));
  });
}

void ZVPEventSender::sendEvent(const std::string& eventName) noexcept {
  backoffice("sendEvent", [&] { sendEventUnguarded(eventName, ZVPCustomParams()); });
}

void ZVPEventSender::sendEvent(const std::string& eventName, ZVPCustomParams params) noexcept {
  backoffice("sendEvent", [&] { sendEventUnguarded(eventName, std::move(params)); });
}

void ZVPEventSender::sendEventUnguarded(const std::string& eventName, ZVPCustomParams params) {
  auto& device = *deviceInfo_;
  device.sendedGameUserId_ = device.getGameUserId();
  params.put(TS_APP_ID, device.appId());
  params.put(TS_EVENT_NAME, eventName);
  params.put(TS_PLATFORM_ID_NAME, std::int32_t{device.platformId()});
  params.put(TS_RANDOM_UID, device.randomUID());
  params.put(TS_CLIENT_TIMESTAMP, device.clientTimestamp());
  params.put(TS_ORDER, ZVPOrderId::nextOrder());
  params.put(TS_DEVICE_ID, device.deviceId());
  params.put(TS_CLIENT_VERSION, device.clientVersion());
  if (device.limitAdTracking() == 0) params.put(TS_ADVERTISING_ID, device.advertisingId());
  params.put(TS_GAME_USER_ID, device.sendedGameUserId_);
  eventController_->sendEvent(params);
}

void ZVPEventSender::sendUpdateSetting() noexcept {
  backoffice("sendUpdateSetting", [&] {
    auto& device = *deviceInfo_;
    const auto current = device.getGameUserId();
    if (!device.sendedGameUserId_ || device.sendedGameUserId_ != current)
      sendEventUnguarded(TS_EVENT_NAME_UPDATE_SETTING, ZVPCustomParams());
  });
}

}  // namespace zivora
