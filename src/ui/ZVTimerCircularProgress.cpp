#include "ui/ZVTimerCircularProgress.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>

#include "util/Guard.h"

namespace zivora::ui {

ZVTimerCircularProgress::ZVTimerCircularProgress(Rect frame) : View(frame) {
  guarded("ZVTimerCircularProgress", "baseInit", [&] { baseInit(); });
}

void ZVTimerCircularProgress::baseInit() {
  duration_ = 1;
  auto ring = std::make_shared<ZVCircularProgressView>(bounds());
  addSubview(ring);
  timer_ = ring;
  auto label = std::make_shared<Label>(bounds());
  label->setAlignment(Label::Alignment::Center);
  addSubview(label);
  label_ = label;
  fontSize_ = 0.48f * static_cast<float>(frame().height());
  auto helvetica = Font::named("Helvetica-Bold", fontSize_);
  font_ = helvetica ? *helvetica : Font::systemFont(fontSize_);
  validate();
}

void ZVTimerCircularProgress::layoutSubviews() {
  for (const auto& view : subviews()) view->setFrame(bounds());
}

void ZVTimerCircularProgress::setDuration(float duration) {
  guarded("ZVTimerCircularProgress", "setDuration", [&] {
    duration_ = duration;
    validate();
  });
}

void ZVTimerCircularProgress::setCurrentTime(float currentTime) {
  guarded("ZVTimerCircularProgress", "setCurrentTime", [&] {
    currentTime_ = std::max(currentTime, 0.0f);
    validate();
  });
}

// In 32-bit floats, as the fields are: the second shown changes where a
// float's rounding puts it, not where exact arithmetic would.
std::int32_t ZVTimerCircularProgress::displayedSeconds(float duration, float currentTime) {
  const float remaining = duration - currentTime + 1.0f;
  if (std::isnan(remaining)) return 0;
  // 2^31 is exact as a float; INT32_MAX is not.
  constexpr float kLimit = 2147483648.0f;
  if (remaining >= kLimit) return std::numeric_limits<std::int32_t>::max();
  if (remaining <= -kLimit) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(std::trunc(remaining));
}

void ZVTimerCircularProgress::validate() {
  guarded("ZVTimerCircularProgress", "validate", [&] {
    if (auto label = label_.lock()) {
      const std::int32_t shown = displayedSeconds(duration_, currentTime_);
      if (shown != lastDisplayTime_) {
        lastDisplayTime_ = shown;
        text_ = fmt::format("{}", shown);
        label->setText(text_, {.font = font_,
                               .foreground = Color::white(),
                               .stroke = Color::black(),
                               .strokeWidth = fontSize_ / -6});
      }
    }
    if (auto ring = timer_.lock()) ring->setProgress(currentTime_ / duration_);
  });
}

}  // namespace zivora::ui
