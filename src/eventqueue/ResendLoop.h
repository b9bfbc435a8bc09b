#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "util/Guard.h"
#include "zivora/ZVConstants.h"

namespace zivora {

class EventFile;
namespace dispatch {
class Queue;
class Runtime;
}  // namespace dispatch

// What distinguishes one queue's resend loop from another's.
struct ResendLoopOptions {
  std::string queueLabel;
  // The class name under which failures are reported, and how.
  const char* className = "";
  GuardReport report = GuardReport::Analytics;
  // When set, nothing is sent before serverConnected().
  bool waitsForServer = true;
  // The length of one second of back-off; integration tests shorten it.
  std::chrono::nanoseconds timeUnit = std::chrono::seconds(1);
  // Sends one stored event and blocks until the reply is in; answers the
  // HTTP status (200 consumes the event; anything else keeps it).
  std::function<int(const std::string& event)> send;
  // True for a stored event that no attempt could ever send (one that does
  // not convert to its wire form). It is consumed, and the loop goes on,
  // instead of blocking the queue behind it for ever. Null: none is.
  std::function<bool(const std::string& event)> undeliverable = nullptr;
};

// Drains an event file oldest first, one request at a time, on a serial
// queue of its own. After a failure the queue sleeps 1 s, then 2, 4 ... up
// to 100 s between attempts; the first success resets the pause to 1 s.
// Events are never dropped for failing.
//
// The consumed marks of delivered events are synced in groups on the
// global queue, so that sending never waits for the disk: once
// kConsumedSyncGroup marks are unsynced, and kConsumedSyncDelay after the
// first unsynced mark at the latest. Should the disk fall behind, the file
// syncs in line at EventFileOptions::maxUnsyncedConsumed marks, which
// bounds the delivered events a power cut can bring back.
class ResendLoop : public std::enable_shared_from_this<ResendLoop> {
 public:
  static constexpr std::int32_t kFirstDelay = TS_DELAY_RESEND_EVENT;
  static constexpr std::int32_t kMaxDelay = TS_MAX_DELAY_RESEND_EVENT;
  // Unsynced consumed marks that start a sync at once. One fdatasync
  // outlasts a few dozen sends on a fast link: smaller groups keep the disk
  // syncing without pause, and the marks' writes wait for it.
  static constexpr int kConsumedSyncGroup = 64;
  // The longest a consumed mark waits before its sync starts.
  static constexpr std::chrono::milliseconds kConsumedSyncDelay{100};

  // The pause that follows `delay` seconds: double, capped at kMaxDelay.
  static std::int32_t nextDelay(std::int32_t delay) noexcept;

  ResendLoop(std::shared_ptr<dispatch::Runtime> runtime, std::shared_ptr<EventFile> file,
             ResendLoopOptions options);
  ~ResendLoop();
  ResendLoop(const ResendLoop&) = delete;
  ResendLoop& operator=(const ResendLoop&) = delete;

  // Appends `json` (when not empty) and starts sending if possible. True
  // when the event is on disk.
  bool sendEvent(const std::string& json) noexcept;
  // The server answered the handshake: sending may start. Never undone.
  void serverConnected() noexcept;
  // Queues a send task unless one is queued or running.
  void trySendEvent() noexcept;

  std::int32_t delayResendOffline() const noexcept { return delayResendOffline_.load(); }
  bool hasThread() const noexcept { return hasThread_.load(); }
  // True while the caller runs on the loop's own queue.
  bool isCurrent() const noexcept;

 private:
  void sendFirstEvent();
  void receiveResult(int code);
  void send(std::optional<std::string> event);
  // Consumes the oldest event; answers the next one when asked to read it.
  std::optional<std::string> consumeFirstEvent(bool readNext);
  void scheduleConsumedSync();
  void syncConsumedInBackground(const char* method);
  void sleepResendThread();
  void backOff();
  template <class Body>
  void onSerial(const char* method, Body body);

  std::shared_ptr<dispatch::Runtime> runtime_;
  std::shared_ptr<EventFile> saver_;
  ResendLoopOptions options_;
  std::shared_ptr<dispatch::Queue> serial_;
  std::atomic<bool> hasThread_{false};
  std::atomic<std::int32_t> delayResendOffline_{kFirstDelay};
  std::atomic<bool> isServerConnected_{false};
  std::atomic<bool> cancelAll_{false};
  std::atomic<bool> syncQueued_{false};
  std::atomic<bool> syncTimerArmed_{false};
};

}  // namespace zivora
