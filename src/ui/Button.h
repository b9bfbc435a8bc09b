#pragma once

#include <functional>

#include "ui/View.h"

namespace zivora::ui {

// A view that runs an action when tapped (touch up inside).
class Button : public View {
 public:
  explicit Button(Rect frame = {});

  void setAction(std::function<void()> action) { action_ = std::move(action); }
  // What a tap does; the key and controller bindings call it as well.
  void sendAction();

 protected:
  void handleTap() override { sendAction(); }

 private:
  std::function<void()> action_;
};

}  // namespace zivora::ui
