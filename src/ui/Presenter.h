#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "ui/Animator.h"
#include "ui/Canvas.h"
#include "ui/Screen.h"
#include "ui/VideoPlanes.h"
#include "ui/Window.h"

namespace zivora::ui {

// Shows full-screen windows over the host and draws their frames. Windows
// are drawn in the order they were presented; taps and bound actions go to
// the topmost. This base draws into memory, which is all a headless run (or
// a test) needs; the window presenter puts the same frames on a display.
// Main queue only.
class Presenter {
 public:
  Presenter(Screen screen, dispatch::Queue& mainQueue, dispatch::Clock& clock);
  virtual ~Presenter();
  Presenter(const Presenter&) = delete;
  Presenter& operator=(const Presenter&) = delete;

  const Screen& screen() const { return screen_; }
  Animator& animator() { return animator_; }

  void present(std::shared_ptr<Window> window);
  void dismiss(const Window& window);
  const std::vector<std::shared_ptr<Window>>& windows() const { return windows_; }
  // Whether a window is shown; any thread (a host thread asks it of every
  // native event it hands the SDK, while the main queue changes the windows).
  bool isShowing() const { return showing_.load(std::memory_order_acquire); }

  // Input, in screen points; false when nothing took it.
  bool tap(Point point);
  bool performAction(ScreenAction action);

  // Redraws the pixels that changed in the windows (all of them after the
  // windows themselves changed, or with `force`); true when it drew.
  bool renderFrame(bool force = false);
  const Canvas& canvas() const { return canvas_; }
  // The canvas pixels the latest renderFrame() that drew redrew.
  const std::vector<cairo_rectangle_int_t>& lastDamage() const { return lastDamage_; }
  // The planes video pictures are shown in beneath the canvas, or null when
  // they are drawn into the canvas itself (the memory presenter).
  VideoPlanes* videoPlanes() const { return planes_.get(); }

 protected:
  void setScreen(const Screen& screen);
  // From now on video pictures are left out of the canvas for the
  // presenter to show beneath it.
  void enableVideoPlanes();
  // Called after the visible windows changed.
  virtual void windowsChanged() {}

 private:
  dispatch::Queue& mainQueue_;
  Screen screen_;
  Animator animator_;
  Canvas canvas_;
  std::vector<std::shared_ptr<Window>> windows_;
  std::atomic<bool> showing_{false};
  bool stackChanged_ = true;
  std::vector<cairo_rectangle_int_t> lastDamage_;
  std::shared_ptr<VideoPlanes> planes_;
};

// The presenter a screen holds weakly (the presenter's windows hold the
// screen); throws std::logic_error once it has gone with its display, which
// the screens' guards turn into doing nothing.
std::shared_ptr<Presenter> lockPresenter(const std::weak_ptr<Presenter>& presenter);

}  // namespace zivora::ui
