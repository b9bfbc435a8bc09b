#pragma once

#include <chrono>

#include "platform/dispatch/TaskHandle.h"

namespace zivora::dispatch {

// The only source of time in the SDK. A loop reads "now" once per turn.
class Clock {
 public:
  using WallTime = std::chrono::system_clock::time_point;
  using SteadyTime = std::chrono::steady_clock::time_point;

  virtual ~Clock() = default;

  // Wall time, for timestamps that leave the process.
  virtual WallTime wallNow() const = 0;
  // Monotonic time, for delays and durations.
  virtual SteadyTime steadyNow() const = 0;
  // Blocks the calling thread. On virtual time it runs the other queues'
  // work that falls due before the wake time, then advances the clock.
  virtual void sleepFor(Duration duration) = 0;
};

}  // namespace zivora::dispatch
