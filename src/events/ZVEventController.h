#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

#include "eventqueue/ResendLoop.h"
#include "events/ZVFileSaver.h"

namespace zivora {

namespace dispatch {
class Runtime;
}

// The ad events' queue: "ts_events.dat" drained to the ad server on
// "com.zivora.analytics.controller" once the handshake has succeeded.
class ZVEventController {
 public:
  static constexpr char kQueueLabel[] = "com.zivora.analytics.controller";

  ZVEventController(std::shared_ptr<dispatch::Runtime> runtime,
                    const std::filesystem::path& documentsDirectory,
                    std::chrono::nanoseconds timeUnit = std::chrono::seconds(1),
                    std::shared_ptr<platform::FileSystem> io = nullptr);

  bool sendEvent(const std::string& json) noexcept { return loop_->sendEvent(json); }
  void serverConnected() noexcept { loop_->serverConnected(); }
  void trySendEvent() noexcept { loop_->trySendEvent(); }

  ZVFileSaver& saver() { return saver_; }
  const ResendLoop& loop() const { return *loop_; }

 private:
  ZVFileSaver saver_;
  std::shared_ptr<ResendLoop> loop_;
};

}  // namespace zivora
