#pragma once

#include <chrono>
#include <cmath>
#include <cstdint>

namespace zivora::platform {

// A point or span on a media timeline, in nanoseconds: the player's clock,
// seek targets and durations. An invalid time (an unknown duration) is not
// zero and compares unequal to every valid time.
class MediaTime {
 public:
  constexpr MediaTime() = default;
  constexpr explicit MediaTime(std::chrono::nanoseconds value) : value_(value), valid_(true) {}

  static constexpr MediaTime zero() { return MediaTime(std::chrono::nanoseconds(0)); }
  static constexpr MediaTime invalid() { return MediaTime(); }
  // Not-a-number and infinities give an invalid time.
  static MediaTime fromSeconds(double seconds) {
    if (!std::isfinite(seconds)) return invalid();
    return MediaTime(std::chrono::nanoseconds(std::llround(seconds * 1e9)));
  }

  constexpr bool isValid() const { return valid_; }
  constexpr std::chrono::nanoseconds value() const { return value_; }
  // Seconds; 0 for an invalid time.
  constexpr double seconds() const { return valid_ ? value_.count() / 1e9 : 0.0; }

  friend constexpr bool operator==(MediaTime a, MediaTime b) {
    return a.valid_ == b.valid_ && (!a.valid_ || a.value_ == b.value_);
  }
  friend constexpr MediaTime operator-(MediaTime a, MediaTime b) {
    if (!a.valid_ || !b.valid_) return invalid();
    return MediaTime(a.value_ - b.value_);
  }

 private:
  std::chrono::nanoseconds value_{0};
  bool valid_ = false;
};

}  // namespace zivora::platform
