#pragma once

#include <SDL.h>

#include <atomic>
#include <memory>
#include <mutex>

#include "ui/AppLifecycle.h"
#include "ui/Presenter.h"

namespace zivora {
class Context;
}

namespace zivora::ui {

// The context's screen: the application's lifecycle and the presenter of
// the ad screens, made on first use on the main queue. The presenter is the
// SDL one (the SDK's own window, or the host's); where no display answers,
// one that draws into memory, so ads still run their course headless.
class Display {
 public:
  explicit Display(std::weak_ptr<Context> context);

  // The context's one display; throws std::logic_error for a null context.
  static std::shared_ptr<Display> of(const std::shared_ptr<Context>& context);

  AppLifecycle& lifecycle() { return lifecycle_; }
  // Main queue only.
  Presenter& presenter();
  // The same presenter, for holders that outlive a call (main queue only).
  std::shared_ptr<Presenter> sharedPresenter();
  // Puts `presenter` in place of the one the display would make, for a host
  // or a test that chooses where ad screens are drawn; false (and nothing
  // changes) once a presenter is in use.
  bool setPresenter(std::unique_ptr<Presenter> presenter);
  // Host-pumped hosts with their own window forward their events here.
  bool handleEvent(const SDL_Event& event);
  bool isPresenting() const;
  // Drops the presenter and the screens it shows (the context is going).
  void closeScreens();

  // 2 (landscape) when the presenting surface is wider than tall, else 1;
  // 1 until refreshOrientation() ran. Any thread, never blocks.
  int deviceOrientation() const { return orientation_; }
  // Reads the presenting surface's shape (main queue only).
  void refreshOrientation();

 private:
  std::weak_ptr<Context> context_;
  AppLifecycle lifecycle_;
  mutable std::mutex mutex_;
  std::shared_ptr<Presenter> presenter_;
  std::atomic<int> orientation_{1};
};

}  // namespace zivora::ui
