#pragma once

#include <chrono>
#include <compare>
#include <cstdint>

namespace zivora::media {

// A point or span on a media timeline, in nanoseconds (GStreamer's unit).
// An invalid time stands for "unknown" (a duration before the item is
// ready, a position the pipeline cannot report); it compares below every
// valid time and converts to 0 seconds.
class MediaTime {
 public:
  constexpr MediaTime() = default;

  static constexpr MediaTime zero() { return MediaTime(0); }
  static constexpr MediaTime invalid() { return MediaTime(); }
  static constexpr MediaTime fromNanoseconds(std::int64_t ns) { return MediaTime(ns); }
  // Rounded to the nearest nanosecond; negative values are kept.
  static constexpr MediaTime fromSeconds(double seconds) {
    const double ns = seconds * 1e9;
    return MediaTime(static_cast<std::int64_t>(ns < 0 ? ns - 0.5 : ns + 0.5));
  }
  template <class Rep, class Period>
  static constexpr MediaTime fromDuration(std::chrono::duration<Rep, Period> d) {
    return MediaTime(std::chrono::duration_cast<std::chrono::nanoseconds>(d).count());
  }

  constexpr bool isValid() const { return valid_; }
  constexpr std::int64_t nanoseconds() const { return valid_ ? ns_ : 0; }
  constexpr double seconds() const { return static_cast<double>(nanoseconds()) / 1e9; }

  constexpr friend bool operator==(MediaTime a, MediaTime b) {
    return a.valid_ == b.valid_ && a.nanoseconds() == b.nanoseconds();
  }
  constexpr friend std::strong_ordering operator<=>(MediaTime a, MediaTime b) {
    if (a.valid_ != b.valid_)
      return a.valid_ ? std::strong_ordering::greater : std::strong_ordering::less;
    return a.nanoseconds() <=> b.nanoseconds();
  }
  // Arithmetic with an invalid operand gives an invalid time.
  constexpr friend MediaTime operator+(MediaTime a, MediaTime b) {
    return a.valid_ && b.valid_ ? MediaTime(a.ns_ + b.ns_) : MediaTime();
  }
  constexpr friend MediaTime operator-(MediaTime a, MediaTime b) {
    return a.valid_ && b.valid_ ? MediaTime(a.ns_ - b.ns_) : MediaTime();
  }

 private:
  constexpr explicit MediaTime(std::int64_t ns) : ns_(ns), valid_(true) {}

  std::int64_t ns_ = 0;
  bool valid_ = false;
};

}  // namespace zivora::media
