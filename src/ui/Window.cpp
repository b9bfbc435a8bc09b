#include "ui/Window.h"

namespace zivora::ui {

Window::Window(Rect frame) : View(frame) {}

void Window::bindAction(ScreenAction action, std::weak_ptr<Button> button) {
  bindings_[action] = std::move(button);
}

bool Window::performAction(ScreenAction action) {
  auto found = bindings_.find(action);
  if (found == bindings_.end()) return false;
  auto button = found->second.lock();
  if (!button || !button->isReachable()) return false;
  button->sendAction();
  return true;
}

}  // namespace zivora::ui
