#pragma once

#include <functional>
#include <map>
#include <mutex>

namespace zivora::ui {

// The host application's trips to the background and back, as SDL window
// events and the host's own calls report them. Observers run on the thread
// that posts (the presenter posts from the main queue).
class AppLifecycle {
 public:
  enum class Event { DidEnterBackground, WillEnterForeground };
  using Observer = std::function<void(Event)>;
  using Token = int;

  Token addObserver(Observer observer);
  void removeObserver(Token token);
  // Repeated reports of the same state are dropped: a window that loses
  // focus and then is minimised went to the background once.
  void post(Event event);
  bool inBackground() const;

 private:
  mutable std::mutex mutex_;
  std::map<Token, Observer> observers_;
  Token nextToken_ = 1;
  bool background_ = false;
};

}  // namespace zivora::ui
