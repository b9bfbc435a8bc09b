#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/WindowSurface.h"
#include "ui/AppLifecycle.h"
#include "ui/Presenter.h"
#include "zivora/HostOptions.h"

namespace zivora::ui {

// Puts the presenter's frames on a window: the SDK's own, raised while an
// ad screen shows and hidden afterwards, or the host's. Each frame hands
// the window the canvas areas that changed and the video planes beneath
// them; the window's input drives the screens, and its trips to the
// background reach the lifecycle. Everything runs on the main queue, the
// one thread that drives the window system; the entry points assert it.
class WindowPresenter : public Presenter {
 public:
  // The build's own window for `options`; null, with the reason in `why`,
  // when no window can be had. Main queue only.
  static std::unique_ptr<WindowPresenter> create(const HostOptions& options,
                                                 dispatch::Queue& mainQueue, dispatch::Clock& clock,
                                                 AppLifecycle& lifecycle, std::string& why);
  WindowPresenter(std::unique_ptr<platform::WindowSurface> surface, const HostOptions& options,
                  dispatch::Queue& mainQueue, dispatch::Clock& clock, AppLifecycle& lifecycle);
  ~WindowPresenter() override;

  // Reacts to one of the host's native events; true when it was the
  // presenter's.
  bool handleEvent(const void* nativeEvent);
  // A copy of a native event for handing it to the main queue. Any thread.
  std::shared_ptr<const void> copyEvent(const void* nativeEvent) const;
  // Takes the window's events and shows a new frame when one was drawn.
  void frame();
  // The size in pixels of the display the window is on.
  std::optional<Size> displayPixels() const;
  // The native window the frames go to (for a host that reads back what
  // it shows).
  void* window() const { return surface_->nativeWindow(); }

 protected:
  void windowsChanged() override;

 private:
  static Screen screenOf(const platform::WindowSurface& surface, const HostOptions& options);
  bool handle(const platform::SurfaceEvent& event);
  // Shows the planes and the canvas over them; `canvasChanged` after
  // renderFrame() drew.
  void showFrame(bool canvasChanged);
  void performBinding(const std::vector<ScreenAction>& actions);

  std::unique_ptr<platform::WindowSurface> surface_;
  dispatch::Queue& mainQueue_;
  AppLifecycle& lifecycle_;
  dispatch::TaskHandle frameTimer_;
  // Reused from frame to frame.
  platform::SurfaceFrame frame_;
};

}  // namespace zivora::ui
