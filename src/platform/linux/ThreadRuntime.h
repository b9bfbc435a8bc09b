#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/dispatch/Runtime.h"
#include "platform/linux/SystemClock.h"
#include "zivora/HostOptions.h"

namespace zivora::dispatch {

class ThreadQueue;

// The runtime on real threads: a thread per serial queue, the main queue on
// a thread of its own or pumped by the host, and a global pool of two.
// Shutting it down (or destroying it) stops every thread it started; tasks
// running then finish, later posts to its queues are dropped, and serial
// queues made afterwards never run anything.
class ThreadRuntime final : public Runtime {
 public:
  explicit ThreadRuntime(MainQueueMode mode = MainQueueMode::OwnThread);
  ~ThreadRuntime() override;
  ThreadRuntime(const ThreadRuntime&) = delete;
  ThreadRuntime& operator=(const ThreadRuntime&) = delete;

  std::shared_ptr<Queue> makeSerialQueue(std::string label) override;
  Queue& mainQueue() override;
  Queue& globalQueue() override;
  Clock& clock() override { return clock_; }
  // Runs the main-queue work that is due on the calling thread; a main queue
  // with its own thread is never pumped and this returns 0.
  std::size_t pumpMainQueue() override;
  void atMainQueueEnd(Task task) override;
  void beginShutdown() override;
  void shutdown() override;

  MainQueueMode mainQueueMode() const { return mode_; }

 private:
  const MainQueueMode mode_;
  SystemClock clock_;
  std::unique_ptr<ThreadQueue> main_;
  std::unique_ptr<ThreadQueue> global_;
  std::mutex serialQueuesMutex_;
  bool shutDown_ = false;
  // Serial queues belong to whoever holds them; the runtime only stops them.
  std::vector<std::weak_ptr<ThreadQueue>> serialQueues_;
};

}  // namespace zivora::dispatch
