#pragma once

#include <string>

#include "platform/dispatch/TaskHandle.h"

namespace zivora::dispatch {

// A queue that runs tasks one at a time, in the order they became due.
// Implemented on real threads (ThreadRuntime) and on virtual time in tests
// (VirtualRuntime); every class of the SDK sees only this interface.
class Queue {
 public:
  virtual ~Queue() = default;

  virtual const std::string& label() const = 0;

  // Runs `task` after everything queued before it.
  virtual void async(Task task) = 0;

  // Runs `task` once `delay` has passed, unless the handle is cancelled first.
  virtual TaskHandle after(Duration delay, Task task) = 0;

  // A repeating timer: first fire after one interval, fires that fall due
  // while the queue is busy are merged into one (no catch-up burst), nothing
  // runs after the handle is cancelled.
  virtual TaskHandle every(Duration interval, Task task) = 0;

  // True while the calling thread is running one of this queue's tasks.
  virtual bool isCurrent() const = 0;
};

}  // namespace zivora::dispatch
