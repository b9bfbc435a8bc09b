#include "support/WatchedRuntime.h"

namespace zivora::test {

// Forwards to a real queue and reports each finished task to the runtime.
class WatchedRuntime::WatchedQueue final : public dispatch::Queue {
 public:
  WatchedQueue(std::shared_ptr<Progress> progress, dispatch::Queue& queue,
               std::shared_ptr<dispatch::Queue> owned = nullptr)
      : progress_(std::move(progress)), queue_(queue), owned_(std::move(owned)) {}

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
    return [progress = progress_, task = std::move(task)] {
      task();
      progress->taskFinished();
    };
  }

  std::shared_ptr<Progress> progress_;
  dispatch::Queue& queue_;
  std::shared_ptr<dispatch::Queue> owned_;
};

WatchedRuntime::WatchedRuntime(MainQueueMode mode)
    : threads_(std::make_unique<dispatch::ThreadRuntime>(mode)),
      main_(std::make_unique<WatchedQueue>(progress_, threads_->mainQueue())),
      global_(std::make_unique<WatchedQueue>(progress_, threads_->globalQueue())) {}

WatchedRuntime::~WatchedRuntime() { threads_.reset(); }

std::shared_ptr<dispatch::Queue> WatchedRuntime::makeSerialQueue(std::string label) {
  auto queue = threads_->makeSerialQueue(std::move(label));
  auto& real = *queue;
  return std::make_shared<WatchedQueue>(progress_, real, std::move(queue));
}

dispatch::Queue& WatchedRuntime::mainQueue() { return *main_; }

dispatch::Queue& WatchedRuntime::globalQueue() { return *global_; }

std::size_t WatchedRuntime::pumpMainQueue() { return threads_->pumpMainQueue(); }

bool WatchedRuntime::waitUntil(const std::function<bool()>& condition, std::chrono::seconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  std::unique_lock lock(progress_->mutex);
  while (true) {
    const auto seen = progress_->finishedTasks;
    lock.unlock();
    if (condition()) return true;
    lock.lock();
    if (!progress_->finished.wait_until(lock, deadline,
                                        [&] { return progress_->finishedTasks != seen; }))
      return condition();
  }
}

void WatchedRuntime::Progress::taskFinished() {
  {
    std::lock_guard lock(mutex);
    ++finishedTasks;
  }
  finished.notify_all();
}

}  // namespace zivora::test
