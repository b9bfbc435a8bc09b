#include "ui/AppLifecycle.h"

#include <vector>

namespace zivora::ui {

AppLifecycle::Token AppLifecycle::addObserver(Observer observer) {
  std::lock_guard lock(mutex_);
  observers_[nextToken_] = std::move(observer);
  return nextToken_++;
}

void AppLifecycle::removeObserver(Token token) {
  std::lock_guard lock(mutex_);
  observers_.erase(token);
}

bool AppLifecycle::inBackground() const {
  std::lock_guard lock(mutex_);
  return background_;
}

void AppLifecycle::post(Event event) {
  std::vector<Observer> toCall;
  {
    std::lock_guard lock(mutex_);
    const bool background = event == Event::DidEnterBackground;
    if (background == background_) return;
    background_ = background;
    for (auto& [token, observer] : observers_) toCall.push_back(observer);
  }
  // Outside the lock: an observer may add or remove observers.
  for (auto& observer : toCall) observer(event);
}

}  // namespace zivora::ui
