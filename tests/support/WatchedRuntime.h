#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "platform/linux/ThreadRuntime.h"

namespace zivora::test {

// The runtime on real threads, with every queue announcing each task it
// finishes. The SDK changes its state only inside queue tasks, so a test
// waits for a state with waitUntil(), which checks again after each task
// instead of polling on a clock.
class WatchedRuntime final : public dispatch::Runtime {
 public:
  explicit WatchedRuntime(MainQueueMode mode = MainQueueMode::OwnThread);
  ~WatchedRuntime() override;

  std::shared_ptr<dispatch::Queue> makeSerialQueue(std::string label) override;
  dispatch::Queue& mainQueue() override;
  dispatch::Queue& globalQueue() override;
  dispatch::Clock& clock() override { return threads_->clock(); }
  std::size_t pumpMainQueue() override;
  void beginShutdown() override { threads_->beginShutdown(); }
  void shutdown() override { threads_->shutdown(); }

  // True once `condition` holds; false if it still does not after `limit`,
  // which only bounds a failing run.
  bool waitUntil(const std::function<bool()>& condition,
                 std::chrono::seconds limit = std::chrono::seconds(60));

 private:
  class WatchedQueue;

  // The count of finished tasks. Tasks share it with the runtime: the last
  // reference to the runtime may go inside one of its own tasks, which then
  // still reports its end.
  struct Progress {
    void taskFinished();

    std::mutex mutex;
    std::condition_variable finished;
    std::uint64_t finishedTasks = 0;
  };

  std::shared_ptr<Progress> progress_ = std::make_shared<Progress>();
  std::unique_ptr<dispatch::ThreadRuntime> threads_;
  std::unique_ptr<WatchedQueue> main_;
  std::unique_ptr<WatchedQueue> global_;
};

}  // namespace zivora::test
