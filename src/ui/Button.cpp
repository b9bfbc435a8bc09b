#include "ui/Button.h"

namespace zivora::ui {

Button::Button(Rect frame) : View(frame) {}

void Button::sendAction() {
  if (action_) action_();
}

}  // namespace zivora::ui
