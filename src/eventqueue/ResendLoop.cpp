#include "eventqueue/ResendLoop.h"

#include <algorithm>

#include "eventqueue/EventFile.h"
#include "platform/dispatch/QueueAssert.h"
#include "platform/dispatch/Runtime.h"
#include "platform/dispatch/WeakTask.h"
#include "zivora/ZVConstants.h"

namespace zivora {

std::int32_t ResendLoop::nextDelay(std::int32_t delay) noexcept {
  return delay >= kMaxDelay / 2 ? kMaxDelay : std::max(delay, 1) * 2;
}

ResendLoop::ResendLoop(std::shared_ptr<dispatch::Runtime> runtime, std::shared_ptr<EventFile> file,
                       ResendLoopOptions options)
    : runtime_(std::move(runtime)), saver_(std::move(file)), options_(std::move(options)) {
  serial_ = runtime_->makeSerialQueue(options_.queueLabel);
  if (!options_.waitsForServer) isServerConnected_ = true;
}

// Marks still unsynced when the loop goes (its timer may never run) are
// synced here, on whatever thread lets the loop go.
ResendLoop::~ResendLoop() { saver_->syncConsumed(); }

bool ResendLoop::isCurrent() const noexcept { return serial_->isCurrent(); }

bool ResendLoop::sendEvent(const std::string& json) noexcept {
  return guarded(
      options_.className, "sendEvent", false,
      [&] {
        if (json.empty()) return false;
        bool saved = saver_->save(json);
        trySendEvent();
        return saved;
      },
      options_.report);
}

void ResendLoop::serverConnected() noexcept {
  guarded(
      options_.className, "serverConnected",
      [&] {
        isServerConnected_ = true;
        trySendEvent();
      },
      options_.report);
}

void ResendLoop::trySendEvent() noexcept {
  guarded(
      options_.className, "trySendEvent",
      [&] {
        if (hasThread_ || !isServerConnected_ || !saver_->hasSavedEvents()) return;
        bool idle = false;
        if (!hasThread_.compare_exchange_strong(idle, true)) return;
        onSerial("trySendEventDispatch", [](ResendLoop& self) { self.sendFirstEvent(); });
      },
      options_.report);
}

template <class Body>
void ResendLoop::onSerial(const char* method, Body body) {
  dispatch::asyncWeak(*serial_, weak_from_this(), {options_.className, method, options_.report},
                      std::move(body));
}

void ResendLoop::sendFirstEvent() {
  ZV_ASSERT_ON(serial_);
  // A back-off is pending: it will try again when it ends.
  if (cancelAll_) return;
  send(saver_->firstEvent());
}

// Sends `event`, the oldest one, and hands the answer back to the queue.
void ResendLoop::send(std::optional<std::string> event) {
  if (!event) {
    hasThread_ = false;
    // An event saved after the read above found the loop still busy.
    trySendEvent();
    return;
  }
  if (options_.undeliverable && options_.undeliverable(*event)) {
    consumeFirstEvent(false);
    hasThread_ = false;
    trySendEvent();
    return;
  }
  int code = TS_HTTP_ERROR;
  try {
    code = options_.send(*event);
  } catch (...) {
    // Whatever went wrong, the loop must go on: it counts as a failed send.
  }
  onSerial("trySendEventDispatch2", [code](ResendLoop& self) { self.receiveResult(code); });
}

void ResendLoop::receiveResult(int code) {
  ZV_ASSERT_ON(serial_);
  if (code == TS_HTTP_STATUS_CODE_OK) {
    cancelAll_ = false;
    delayResendOffline_ = kFirstDelay;
    // The loop stays busy (hasThread_ remains set) and sends the next event
    // at once: no second look at the file to learn whether there is one.
    send(consumeFirstEvent(true));
    return;
  }
  hasThread_ = false;
  cancelAll_ = true;
  sleepResendThread();
}

std::optional<std::string> ResendLoop::consumeFirstEvent(bool readNext) {
  std::optional<std::string> next;
  if (readNext)
    next = saver_->removeFirstLineAndReadNext();
  else
    saver_->removeFirstLine();
  scheduleConsumedSync();
  return next;
}

// A full group is synced at once, the first mark of a group after the
// delay; both on the global queue. One group sync runs at a time: a disk
// slower than the drain then gets fewer, larger groups instead of a pile
// of syncs that compete with the sends, and the group that filled up
// meanwhile is synced as soon as the running sync ends.
void ResendLoop::scheduleConsumedSync() {
  const int unsynced = saver_->unsyncedConsumed();
  if (unsynced >= kConsumedSyncGroup) {
    if (!syncQueued_.exchange(true)) {
      runtime_->globalQueue().async([weak = weak_from_this()] {
        if (auto self = weak.lock()) {
          self->syncConsumedInBackground("syncConsumedDispatch");
          self->syncQueued_ = false;
          if (self->saver_->unsyncedConsumed() >= kConsumedSyncGroup) self->scheduleConsumedSync();
        }
      });
    }
  } else if (unsynced > 0 && !syncTimerArmed_.exchange(true)) {
    runtime_->globalQueue().after(kConsumedSyncDelay, [weak = weak_from_this()] {
      if (auto self = weak.lock()) {
        self->syncTimerArmed_ = false;
        self->syncConsumedInBackground("syncConsumedTimerDispatch");
      }
    });
  }
}

void ResendLoop::syncConsumedInBackground(const char* method) {
  guarded(
      options_.className, method, [&] { saver_->syncConsumed(); }, options_.report);
}

void ResendLoop::sleepResendThread() {
  onSerial("sleepResendThreadDispatch", [](ResendLoop& self) { self.backOff(); });
}

// Sleeps on the loop's own queue on purpose: nothing else may be sent
// meanwhile.
void ResendLoop::backOff() {
  ZV_ASSERT_ON(serial_);
  std::int32_t delay = delayResendOffline_;
  runtime_->clock().sleepFor(
      std::chrono::duration_cast<dispatch::Duration>(options_.timeUnit * delay));
  delayResendOffline_ = nextDelay(delay);
  cancelAll_ = false;
  trySendEvent();
}

}  // namespace zivora
