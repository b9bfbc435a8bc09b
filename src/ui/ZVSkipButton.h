#pragma once

#include "ui/Button.h"
#include "ui/ZVSkipProgressLayer.h"

namespace zivora::ui {

// The skip control: a ring around a fast-forward glyph that fills until
// skipping is allowed, half transparent until then. A negative duration
// forbids skipping and hides the control.
class ZVSkipButton : public Button {
 public:
  explicit ZVSkipButton(Rect frame = {});

  float duration() const { return duration_; }
  void setDuration(float duration);
  float currentTime() const { return currentTime_; }
  // Negative times are stored as 0.
  void setCurrentTime(float currentTime);
  // Strictly past the skip time.
  bool isReady() const;
  void validate();

  ZVSkipProgressLayer& ring() const;

 private:
  float duration_ = 100;
  float currentTime_ = 0;
};

}  // namespace zivora::ui
