#pragma once

#include <algorithm>

#include "platform/dispatch/TaskHandle.h"

namespace zivora::dispatch {

// Repeating timers shorter than this are stretched to it: a zero interval
// would keep a queue spinning.
constexpr Duration kMinimumTimerInterval = std::chrono::milliseconds(1);

inline Duration timerInterval(Duration requested) {
  return std::max(requested, kMinimumTimerInterval);
}

// When a repeating timer that was due at `due` fires next, given that its run
// ended at `now`: the first point of its original grid strictly after `now`.
// Fires missed while the queue was busy collapse into the one that just ran.
template <class TimePoint>
TimePoint nextFire(TimePoint due, Duration interval, TimePoint now) {
  if (now < due) return due + interval;
  return due + interval * ((now - due) / interval + 1);
}

}  // namespace zivora::dispatch
