#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "events/ZVEventController.h"

namespace zivora {

namespace dispatch {
class Queue;
}

// Turns the SDK's reportable moments into ad-server event documents and
// hands them to the event queue. Every call returns at once; documents are
// built and appended on "com.zivora.eventSender" in call order.
class ZVEventSender : public std::enable_shared_from_this<ZVEventSender> {
 public:
  static constexpr char kQueueLabel[] = "com.zivora.eventSender";

  struct Options {
    std::filesystem::path documentsDirectory;
    // The store receipt attached by purchaseEvent(); empty: there is none.
    std::filesystem::path receiptFile;
    std::chrono::nanoseconds timeUnit = std::chrono::seconds(1);
    std::shared_ptr<platform::FileSystem> io = nullptr;
  };

  ZVEventSender(std::shared_ptr<dispatch::Runtime> runtime, Options options);

  // The installed context's one instance; null when no context is installed.
  static std::shared_ptr<ZVEventSender> shared() noexcept;

  // A purchase with the receipt file of the host options; without one,
  // nothing is sent and the missing receipt is reported.
  void purchaseEvent(double price, std::optional<std::string> currency,
                     std::optional<std::string> transactionId) noexcept;
  // A purchase with the receipt the caller holds (sent as it is).
  void purchase(double price, std::optional<std::string> currency,
                std::optional<std::string> transactionId,
                std::optional<std::string> receipt) noexcept;
  void startWatchingAd(std::string placement, std::string adId, std::uint64_t typeId) noexcept;
  void watchedAdWithPlacement(std::string placement, std::string adId,
                              std::uint64_t typeId) noexcept;
  void removeMotivatedRewards(std::vector<std::string> rewardIds) noexcept;
  void serverConnected() noexcept;

  ZVEventController& eventController() { return eventController_; }

 private:
  template <class Body>
  void onSerial(const char* className, const char* method, Body body);
  void send(const char* method, const char* eventName, nlohmann::json fields);
  std::optional<std::string> readReceipt() const;

  std::shared_ptr<dispatch::Queue> serial_;
  ZVEventController eventController_;
  Options options_;
};

}  // namespace zivora
