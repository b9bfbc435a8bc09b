#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ui/Font.h"
#include "ui/Label.h"
#include "ui/ZVCircularProgressView.h"

namespace zivora::ui {

// The countdown: the whole seconds left (the ceiling of the remaining time)
// inside a ring that fills as the video plays. The number is rebuilt only
// when it changes, not at every position update.
class ZVTimerCircularProgress : public View {
 public:
  explicit ZVTimerCircularProgress(Rect frame = {});

  float duration() const { return duration_; }
  void setDuration(float duration);
  float currentTime() const { return currentTime_; }
  // Negative times are stored as 0.
  void setCurrentTime(float currentTime);
  void validate();

  std::shared_ptr<Label> label() const { return label_.lock(); }
  std::shared_ptr<ZVCircularProgressView> timer() const { return timer_.lock(); }
  const Font& font() const { return font_; }
  std::int32_t lastDisplayTime() const { return lastDisplayTime_; }

  // The number shown for a remaining time: the integer part of
  // duration − current time + 1, not clamped at 0. Not-a-number shows 0.
  static std::int32_t displayedSeconds(float duration, float currentTime);

  void layoutSubviews() override;

 private:
  void baseInit();

  float duration_ = 1;
  float currentTime_ = 0;
  Font font_ = Font::boldSystemFont(0);
  float fontSize_ = 0;
  std::int32_t lastDisplayTime_ = 0;
  std::string text_;
  std::weak_ptr<Label> label_;
  std::weak_ptr<ZVCircularProgressView> timer_;
};

}  // namespace zivora::ui
