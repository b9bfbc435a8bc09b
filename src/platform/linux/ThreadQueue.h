#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "platform/dispatch/Queue.h"

namespace zivora::dispatch {

// A queue on real threads. With one worker it is a serial queue; with more
// it is a pool whose tasks may overlap; with none it runs only when someone
// calls runDue() (the host-pumped main queue).
//
// Pending and delayed work sits in one heap ordered by (due time, posting
// order); workers sleep on a condition variable until the earliest entry is
// due or new work arrives. The state lives in a shared core that the worker
// threads also hold, so a queue whose last reference is dropped on its own
// thread detaches that thread instead of joining itself.
class ThreadQueue final : public Queue {
 public:
  ThreadQueue(std::string label, std::size_t workerCount);
  // Drops pending work and joins the workers (detaches the calling one).
  ~ThreadQueue() override;
  ThreadQueue(const ThreadQueue&) = delete;
  ThreadQueue& operator=(const ThreadQueue&) = delete;

  const std::string& label() const override { return label_; }
  void async(Task task) override;
  TaskHandle after(Duration delay, Task task) override;
  TaskHandle every(Duration interval, Task task) override;
  // True while the caller runs one of the queue's tasks; for a pumped queue
  // also on the thread that pumped it last, whose own code cannot overlap
  // the queue's tasks.
  bool isCurrent() const override;

  // Runs, on the calling thread, the tasks that were due when it was called;
  // work posted meanwhile waits for the next call. Returns how many ran.
  std::size_t runDue();

  // Runs `task` once the queue has stopped, after its last task: on its
  // worker (a serial queue) or on the caller of stop() (a pumped queue).
  void atEnd(Task task);

  // Drops pending and delayed work and later posts; running tasks go on.
  // Idempotent.
  void close();
  // Closes the queue, then waits for tasks running on other threads.
  // Idempotent.
  void stop();

  class Core;

 private:
  std::string label_;
  std::shared_ptr<Core> core_;
};

}  // namespace zivora::dispatch
