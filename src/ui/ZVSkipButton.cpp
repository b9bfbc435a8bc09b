#include "ui/ZVSkipButton.h"

#include <algorithm>

#include "util/Guard.h"

namespace zivora::ui {

ZVSkipButton::ZVSkipButton(Rect frame) : Button(frame) {
  setLayer(std::make_unique<ZVSkipProgressLayer>());
}

ZVSkipProgressLayer& ZVSkipButton::ring() const {
  return static_cast<ZVSkipProgressLayer&>(*layer());
}

void ZVSkipButton::setDuration(float duration) {
  guarded("ZVSkipButton", "setDuration", [&] {
    duration_ = duration;
    setHidden(duration < 0);
    validate();
  });
}

void ZVSkipButton::setCurrentTime(float currentTime) {
  guarded("ZVSkipButton", "setCurrentTime", [&] {
    currentTime_ = std::max(currentTime, 0.0f);
    validate();
  });
}

bool ZVSkipButton::isReady() const {
  return guarded("ZVSkipButton", "isReady", false, [&] { return currentTime_ > duration_; });
}

void ZVSkipButton::validate() {
  guarded("ZVSkipButton", "validate", [&] {
    if (duration_ < 0) return;
    setAlpha(currentTime_ < duration_ ? 0.5 : 1.0);
    ring().setProgress(currentTime_ / duration_);
  });
}

}  // namespace zivora::ui
