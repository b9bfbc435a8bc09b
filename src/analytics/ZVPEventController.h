#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

#include "analytics/ZVPFileSaver.h"
#include "eventqueue/ResendLoop.h"

namespace zivora {

class ZVPCustomParams;
namespace dispatch {
class Runtime;
}

// The analytics records' queue: "tsp_events_profiling.dat" drained to the
// analytics endpoint on "com.zivora.profiling.controller". Unlike the ad
// queue it does not wait for the ad server's handshake. A stored line that
// cannot be converted to its wire form is consumed with a log line: the
// conversion would fail the same way on every retry.
class ZVPEventController {
 public:
  static constexpr char kQueueLabel[] = "com.zivora.profiling.controller";

  ZVPEventController(std::shared_ptr<dispatch::Runtime> runtime,
                     const std::filesystem::path& documentsDirectory,
                     std::chrono::nanoseconds timeUnit = std::chrono::seconds(1),
                     std::shared_ptr<platform::FileSystem> io = nullptr);

  // Appends the record's line (an empty record has none) and starts
  // sending. True when the line is on disk.
  bool sendEvent(const ZVPCustomParams& record) noexcept;
  void trySendEvent() noexcept { loop_->trySendEvent(); }
  // True while the caller runs on the queue that sends the records.
  bool onQueue() const noexcept { return loop_->isCurrent(); }

  ZVPFileSaver& saver() { return saver_; }
  const ResendLoop& loop() const { return *loop_; }

 private:
  ZVPFileSaver saver_;
  std::shared_ptr<ResendLoop> loop_;
};

}  // namespace zivora
