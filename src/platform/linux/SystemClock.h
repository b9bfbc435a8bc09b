#pragma once

#include "platform/dispatch/Clock.h"

namespace zivora::dispatch {

// Real time: the system clock for timestamps, the steady clock for delays,
// and a real blocking sleep.
class SystemClock final : public Clock {
 public:
  WallTime wallNow() const override;
  SteadyTime steadyNow() const override;
  void sleepFor(Duration duration) override;
};

}  // namespace zivora::dispatch
