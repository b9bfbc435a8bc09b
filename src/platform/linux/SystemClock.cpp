#include "platform/linux/SystemClock.h"

#include <thread>

namespace zivora::dispatch {

Clock::WallTime SystemClock::wallNow() const { return std::chrono::system_clock::now(); }

Clock::SteadyTime SystemClock::steadyNow() const { return std::chrono::steady_clock::now(); }

void SystemClock::sleepFor(Duration duration) {
  if (duration > Duration::zero()) std::this_thread::sleep_for(duration);
}

}  // namespace zivora::dispatch
