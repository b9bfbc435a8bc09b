#pragma once

#include <condition_variable>
#include <mutex>

#include "platform/dispatch/Clock.h"

namespace zivora::dispatch {

// Real time: the system clock for timestamps, the steady clock for delays,
// and a real blocking sleep that a shutdown can cut short.
class SystemClock final : public Clock {
 public:
  WallTime wallNow() const override;
  SteadyTime steadyNow() const override;
  void sleepFor(Duration duration) override;

  // Ends the sleeps under way and makes later ones return at once: a task
  // backing off for a minute must not hold up the runtime's shutdown, which
  // waits for running tasks.
  void interruptSleeps();

 private:
  std::mutex mutex_;
  std::condition_variable wake_;
  bool interrupted_ = false;
};

}  // namespace zivora::dispatch
