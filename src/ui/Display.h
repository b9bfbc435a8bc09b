#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

#include "ui/AppLifecycle.h"
#include "ui/Geometry.h"
#include "ui/Presenter.h"

namespace zivora {
class Context;
struct HostOptions;
}  // namespace zivora

namespace zivora::ui {

// The context's screen: the application's lifecycle, the presenter of the
// ad screens, and what the device facts report about the display.
//
// One thread drives the display: the main queue's, which is the SDK's own
// thread or, with a host-pumped main queue, the host's thread. The window
// system is not thread-safe, so every SDL call that reaches it (start-up,
// windows, events, display modes) is made there, and the presenter's and the
// display's main-queue entry points assert it. Other threads read what the
// display keeps: its availability, its size and its orientation. The window
// itself is the platform's (made by the top-level wiring); the display only
// holds the presenter that draws into it.
class Display : public std::enable_shared_from_this<Display> {
 public:
  enum class Availability {
    Unknown,      // open() has not run yet
    Available,    // ad screens can be shown
    Unavailable,  // no ad screen can be shown; the log said why
  };

  explicit Display(std::weak_ptr<Context> context);

  // The context's one display; throws std::logic_error for a null context.
  static std::shared_ptr<Display> of(const std::shared_ptr<Context>& context);

  AppLifecycle& lifecycle() { return lifecycle_; }

  // On the host's thread at initialisation, before any SDK thread reaches
  // SDL: a host that has started SDL video itself and still asks the SDK
  // to run its own main queue would have two threads driving SDL. The
  // display then refuses to open (one log line says which mode to use).
  void checkHost(const HostOptions& host);

  // Main queue: makes the presenter (the SDK's SDL window, or the host's
  // window) unless one was set, and reads the display's size. Runs once;
  // a display that cannot be had becomes Unavailable with one log line.
  void open();
  // Any thread, never blocks.
  Availability availability() const { return availability_; }

  // Main queue only; opens the display first if needed. Throws
  // std::logic_error when the display is unavailable.
  Presenter& presenter();
  // The same presenter, for holders that outlive a call (main queue only).
  std::shared_ptr<Presenter> sharedPresenter();
  // Puts `presenter` in place of the one the display would make, for a host
  // or a test that chooses where ad screens are drawn; false (and nothing
  // changes) once a presenter is in use.
  bool setPresenter(std::unique_ptr<Presenter> presenter);

  // A host's native window event (an SDL_Event*) for the ad screens, from
  // any thread. On the main queue's thread it is handled at once; from
  // another thread a copy is handled there. True while an ad screen shows:
  // it is modal, and the host acts on none of the events meanwhile.
  bool handleEvent(const void* nativeEvent);
  bool isPresenting() const;
  // Drops the presenter and the screens it shows (the context is going).
  void closeScreens();

  // 2 (landscape) when the presenting surface is wider than tall, else 1;
  // 1 until the display was opened. Any thread, never blocks.
  int deviceOrientation() const { return orientation_; }
  // Reads the presenting surface's shape again (main queue only).
  void refreshOrientation();
  // The display's size in pixels, once open() found one. Any thread.
  std::optional<Size> pixelSize() const;

 private:
  std::shared_ptr<Presenter> currentPresenter() const;
  std::shared_ptr<Presenter> makePresenter(const std::shared_ptr<Context>& context);
  void markUnavailable();
  void handleOnMainQueue(const void* nativeEvent);

  std::weak_ptr<Context> context_;
  AppLifecycle lifecycle_;
  mutable std::mutex mutex_;
  std::shared_ptr<Presenter> presenter_;
  std::optional<Size> pixelSize_;
  bool hostDrivesSdl_ = false;
  std::atomic<Availability> availability_{Availability::Unknown};
  std::atomic<int> orientation_{1};
};

}  // namespace zivora::ui
