#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/media/YuvPicture.h"

namespace zivora::platform {

// What the window reports, in the SDK's own terms: a key, a controller
// button and a tap all become one of these before the screens see them.
struct SurfaceEvent {
  enum class Kind {
    Tap,         // a left click or a lifted touch at (x, y), in points
    Back,        // Escape, Backspace, the Back key, a controller's B or Back
    Confirm,     // Return, Space, keypad Enter, a controller's A or Start
    Sound,       // M, a controller's Y
    Hidden,      // the window was minimised, hidden or lost the focus
    Shown,       // the window was restored, shown or focused again
    Exposed,     // the window's pixels must be drawn again
    Background,  // the application went to the background
    Foreground,  // the application comes back to the foreground
    None,        // the window's own (a controller plugged in), or a key bound to nothing
  };
  Kind kind = Kind::None;
  double x = 0;
  double y = 0;
};

// The window's logical size in points and its drawable's pixels per point.
struct SurfaceSize {
  double width = 0;
  double height = 0;
  double scale = 1;
};

struct PixelSize {
  int width = 0;
  int height = 0;
};

// An area of the canvas, in canvas pixels.
struct PixelArea {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};

// A video picture shown beneath the canvas, at a place given in canvas
// pixels (scaled when its size is not the picture's).
struct SurfacePlane {
  // Who the picture belongs to: a plane keeps its texture while its owner
  // stays (only compared, never followed).
  const void* owner = nullptr;
  std::shared_ptr<const media::YuvPicture> picture;
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  // The picture changed since the last frame that was shown.
  bool fresh = true;
};

// One frame to show: the canvas (premultiplied 32-bit ARGB rows, cairo's
// layout) with the areas of it redrawn since the last frame, and the video
// planes beneath it.
struct SurfaceFrame {
  const unsigned char* pixels = nullptr;
  int stride = 0;
  int width = 0;
  int height = 0;
  // Empty when the canvas did not change.
  std::vector<PixelArea> damage;
  std::vector<SurfacePlane> planes;
};

// The window the ad screens are shown in: the SDK's own full-screen window
// or the host's, the display it is on, and the input it receives. Made by
// the top-level wiring; every call but copyEvent() is made on the main
// queue, the one thread that drives the window system.
class WindowSurface {
 public:
  virtual ~WindowSurface() = default;

  virtual SurfaceSize size() const = 0;
  // The size in pixels of the display the window is on, when known.
  virtual std::optional<PixelSize> displayPixels() const = 0;
  // False when nothing is put on a display (a headless driver): the video
  // is then drawn into the canvas, so that the frames stay whole in memory.
  virtual bool showsVideoPlanes() const = 0;
  // The host's own window: the host's loop owns its events and draws
  // between the SDK's frames.
  virtual bool isHostWindow() const = 0;
  // The native window (for a host that reads back what it shows).
  virtual void* nativeWindow() const = 0;

  // Makes what frames of a canvas of this size are shown through; false
  // (logged) when the window cannot show any.
  virtual bool prepare(int canvasWidth, int canvasHeight) = 0;
  // Raises the SDK's own window while ad screens show and hides it after;
  // the host's window is left as it is.
  virtual void setShown(bool shown) = 0;
  // Hands every event the SDK's own window received to `handle`.
  virtual void poll(const std::function<void(const SurfaceEvent&)>& handle) = 0;
  // One of the host's native events, in the SDK's terms; nothing when it
  // is not one for the ad screens.
  virtual std::optional<SurfaceEvent> translate(const void* nativeEvent) = 0;
  // A copy of a native event that outlives the caller's, for handing it
  // to the main queue. Any thread.
  virtual std::shared_ptr<const void> copyEvent(const void* nativeEvent) const = 0;
  // Shows `frame`; false when there is nothing to show it on.
  virtual bool present(const SurfaceFrame& frame) = 0;
};

}  // namespace zivora::platform
