#pragma once

#include <map>
#include <memory>

#include "ui/Button.h"
#include "ui/View.h"

namespace zivora::ui {

// What the keyboard and game-controller bindings ask of a screen; each
// stands for a tap on the control bound to it.
enum class ScreenAction { Skip, Sound, CallToAction, Close };

// A full-screen top-level view that a presenter shows over the host.
class Window : public View {
 public:
  explicit Window(Rect frame = {});

  // Binds a key or controller action to a control of the screen (a button,
  // or any view that takes taps).
  void bindAction(ScreenAction action, std::weak_ptr<View> control);
  // Acts as a tap on the bound control would: nothing when the control is
  // gone, hidden, transparent or being animated. True when it acted.
  bool performAction(ScreenAction action);

 private:
  std::map<ScreenAction, std::weak_ptr<View>> bindings_;
};

}  // namespace zivora::ui
