#pragma once

#include <memory>
#include <optional>
#include <string>

#include "analytics/ZVPCustomParams.h"

namespace zivora {

class ZVPDeviceInfoHelper;
class ZVPEventController;

// Builds the analytics records: the SDK's fixed "bo_" fields around the
// caller's parameters, handed to the delivery queue. Used only from the
// analytics facade's queue.
class ZVPEventSender {
 public:
  ZVPEventSender(std::shared_ptr<ZVPDeviceInfoHelper> deviceInfo,
                 std::shared_ptr<ZVPEventController> eventController) noexcept;

  // "AppOpen" with the full device block.
  void sendAppOpen() noexcept;
  void sendPurchase(double amount, std::optional<std::string> currency,
                    std::optional<std::string> productId) noexcept;
  void sendPurchase(double amount, std::optional<std::string> currency,
                    std::optional<std::string> productId,
                    std::optional<std::string> transactionId) noexcept;
  void sendEvent(const std::string& eventName) noexcept;
  // The short record: the fixed fields overwrite custom ones of the same
  // name and type.
  void sendEvent(const std::string& eventName, ZVPCustomParams params) noexcept;
  // "UpdateSetting" when the game user id differs from the one last sent.
  void sendUpdateSetting() noexcept;

 private:
  void sendEventUnguarded(const std::string& eventName, ZVPCustomParams params);
  ZVPCustomParams purchase(double amount, std::optional<std::string> currency,
                           std::optional<std::string> productId) const;

  std::shared_ptr<ZVPDeviceInfoHelper> deviceInfo_;
  std::shared_ptr<ZVPEventController> eventController_;
};

}  // namespace zivora
