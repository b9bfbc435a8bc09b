#include "platform/linux/ThreadRuntime.h"

#include <algorithm>
#include <utility>

#include "platform/linux/ThreadQueue.h"

namespace zivora::dispatch {
namespace {

constexpr std::size_t kGlobalPoolThreads = 2;

}  // namespace

ThreadRuntime::ThreadRuntime(MainQueueMode mode)
    : mode_(mode),
      main_(std::make_unique<ThreadQueue>("main", mode == MainQueueMode::OwnThread ? 1 : 0)),
      global_(std::make_unique<ThreadQueue>("global", kGlobalPoolThreads)) {}

ThreadRuntime::~ThreadRuntime() { shutdown(); }

void ThreadRuntime::beginShutdown() {
  std::vector<std::weak_ptr<ThreadQueue>> serialQueues;
  {
    std::lock_guard lock(serialQueuesMutex_);
    shutDown_ = true;
    serialQueues = serialQueues_;
  }
  // A task sleeping through a back-off ends now instead of holding up the wait.
  clock_.interruptSleeps();
  for (const auto& weak : serialQueues) {
    if (auto queue = weak.lock()) queue->close();
  }
  main_->close();
  global_->close();
}

void ThreadRuntime::shutdown() {
  beginShutdown();
  std::vector<std::weak_ptr<ThreadQueue>> serialQueues;
  {
    std::lock_guard lock(serialQueuesMutex_);
    serialQueues.swap(serialQueues_);
  }
  for (const auto& weak : serialQueues) {
    if (auto queue = weak.lock()) queue->stop();
  }
  main_->stop();
  global_->stop();
}

std::shared_ptr<Queue> ThreadRuntime::makeSerialQueue(std::string label) {
  std::lock_guard lock(serialQueuesMutex_);
  // Late work that makes a queue gets one that drops what it is given.
  if (shutDown_) {
    auto stopped = std::make_shared<ThreadQueue>(std::move(label), 0);
    stopped->stop();
    return stopped;
  }
  auto queue = std::make_shared<ThreadQueue>(std::move(label), 1);
  std::erase_if(serialQueues_, [](const auto& weak) { return weak.expired(); });
  serialQueues_.push_back(queue);
  return queue;
}

Queue& ThreadRuntime::mainQueue() { return *main_; }

void ThreadRuntime::atMainQueueEnd(Task task) { main_->atEnd(std::move(task)); }

Queue& ThreadRuntime::globalQueue() { return *global_; }

std::size_t ThreadRuntime::pumpMainQueue() {
  return mode_ == MainQueueMode::HostPumped ? main_->runDue() : 0;
}

}  // namespace zivora::dispatch
