#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

namespace zivora::dispatch {

using Duration = std::chrono::steady_clock::duration;
using Task = std::function<void()>;

// A handle on a delayed task or a repeating timer. Cancelling is idempotent,
// safe from any thread, and guarantees the task does not start afterwards
// (a run already in progress finishes). An empty handle cancels nothing.
class TaskHandle {
 public:
  TaskHandle() = default;
  explicit TaskHandle(std::shared_ptr<std::atomic<bool>> cancelled)
      : cancelled_(std::move(cancelled)) {}

  static TaskHandle make() { return TaskHandle(std::make_shared<std::atomic<bool>>(false)); }

  void cancel() const {
    if (cancelled_) cancelled_->store(true);
  }
  bool isCancelled() const { return cancelled_ && cancelled_->load(); }
  bool valid() const { return static_cast<bool>(cancelled_); }

 private:
  std::shared_ptr<std::atomic<bool>> cancelled_;
};

}  // namespace zivora::dispatch
