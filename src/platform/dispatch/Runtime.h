#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/Queue.h"
#include "zivora/HostOptions.h"

namespace zivora::dispatch {

// Who runs the main queue: a thread the SDK owns, or the host, which calls
// pumpMainQueue() once a frame from its own loop. The host chooses it in
// HostOptions.
using MainQueueMode = zivora::MainQueueMode;

// The seam through which every class gets its queues and its clock.
class Runtime {
 public:
  virtual ~Runtime() = default;

  // A new serial queue. Dropping the last reference discards its pending work.
  virtual std::shared_ptr<Queue> makeSerialQueue(std::string label) = 0;

  // Screens, their timers, download callbacks and most host callbacks.
  virtual Queue& mainQueue() = 0;

  // A small pool for short independent work; tasks may run concurrently, so
  // its isCurrent() only tells whether the caller is one of the pool's threads.
  virtual Queue& globalQueue() = 0;

  virtual Clock& clock() = 0;

  // Runs all main-queue work that is due and returns how many tasks ran.
  // Only a host-pumped main queue needs it; otherwise it runs nothing.
  virtual std::size_t pumpMainQueue() = 0;

  // Runs `task` on the main queue's thread once the runtime shuts down, after
  // the main queue's last task: for state that must be released on the
  // thread that made it (a window). A runtime whose queues have no threads
  // of their own drops it, and the state goes with its owner.
  virtual void atMainQueueEnd(Task task) { (void)task; }

  // Ends the runtime's work for good: every queue drops its pending and
  // delayed work and ignores later posts, and tasks running on other threads
  // are waited for. A task that calls it is not waited for (it is the
  // caller); it finishes after the call returns. A runtime whose work runs
  // only when its owner drives it (virtual time) has nothing to stop.
  virtual void shutdown() {}
  // The first half of shutdown(): the queues drop their pending and delayed
  // work and ignore later posts, but running tasks are not waited for. An
  // owner that must end what those tasks wait on (a transfer) does it in
  // between, so that no retry they schedule on the way out can run.
  virtual void beginShutdown() {}
};

}  // namespace zivora::dispatch
