#include "platform/linux/SystemClock.h"

namespace zivora::dispatch {

Clock::WallTime SystemClock::wallNow() const { return std::chrono::system_clock::now(); }

Clock::SteadyTime SystemClock::steadyNow() const { return std::chrono::steady_clock::now(); }

void SystemClock::sleepFor(Duration duration) {
  if (duration <= Duration::zero()) return;
  std::unique_lock lock(mutex_);
  wake_.wait_for(lock, duration, [this] { return interrupted_; });
}

void SystemClock::interruptSleeps() {
  {
    std::lock_guard lock(mutex_);
    interrupted_ = true;
  }
  wake_.notify_all();
}

}  // namespace zivora::dispatch
