#include "ui/Window.h"

namespace zivora::ui {

Window::Window(Rect frame) : View(frame) {}

void Window::bindAction(ScreenAction action, std::weak_ptr<View> control) {
  bindings_[action] = std::move(control);
}

bool Window::performAction(ScreenAction action) {
  auto found = bindings_.find(action);
  if (found == bindings_.end()) return false;
  auto control = found->second.lock();
  if (!control || !control->isReachable()) return false;
  control->activate();
  return true;
}

}  // namespace zivora::ui
