#include "support/WatchedRuntime.h"

namespace zivora::test {

// Forwards to a real queue and reports each finished task to the runtime.
class WatchedRuntime::WatchedQueue final : public dispatch::Queue {
 public:
  WatchedQueue(WatchedRuntime& runtime, dispatch::Queue& queue,
               std::shared_ptr<dispatch::Queue> owned = nullptr)
      : runtime_(runtime), queue_(queue), owned_(std::move(owned)) {}

  const std::string& label() const override { return queue_.label(); }
  void async(dispatch::Task task) override { queue_.async(watched(std::move(task))); }
  dispatch::TaskHandle after(dispatch::Duration delay, dispatch::Task task) override {
    return queue_.after(delay, watched(std::move(task)));
  }
  dispatch::TaskHandle every(dispatch::Duration interval, dispatch::Task task) override {
    return queue_.every(interval, watched(std::move(task)));
  }
  bool isCurrent() const override { return queue_.isCurrent(); }

 private:
  dispatch::Task watched(dispatch::Task task) {
    return [&runtime = runtime_, task = std::move(task)] {
      task();
      runtime.taskFinished();
    };
  }

  WatchedRuntime& runtime_;
  dispatch::Queue& queue_;
  std::shared_ptr<dispatch::Queue> owned_;
};

WatchedRuntime::WatchedRuntime(MainQueueMode mode)
    : threads_(std::make_unique<dispatch::ThreadRuntime>(mode)),
      main_(std::make_unique<WatchedQueue>(*this, threads_->mainQueue())),
      global_(std::make_unique<WatchedQueue>(*this, threads_->globalQueue())) {}

// The threads stop first: a task still running reports to this object.
WatchedRuntime::~WatchedRuntime() { threads_.reset(); }

std::shared_ptr<dispatch::Queue> WatchedRuntime::makeSerialQueue(std::string label) {
  auto queue = threads_->makeSerialQueue(std::move(label));
  auto& real = *queue;
  return std::make_shared<WatchedQueue>(*this, real, std::move(queue));
}

dispatch::Queue& WatchedRuntime::mainQueue() { return *main_; }

dispatch::Queue& WatchedRuntime::globalQueue() { return *global_; }

std::size_t WatchedRuntime::pumpMainQueue() { return threads_->pumpMainQueue(); }

bool WatchedRuntime::waitUntil(const std::function<bool()>& condition, std::chrono::seconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  std::unique_lock lock(mutex_);
  while (true) {
    const auto seen = finishedTasks_;
    lock.unlock();
    if (condition()) return true;
    lock.lock();
    if (!finished_.wait_until(lock, deadline, [&] { return finishedTasks_ != seen; }))
      return condition();
  }
}

void WatchedRuntime::taskFinished() {
  {
    std::lock_guard lock(mutex_);
    ++finishedTasks_;
  }
  finished_.notify_all();
}

}  // namespace zivora::test
