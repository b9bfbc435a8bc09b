#pragma once

#include <optional>

namespace zivora::platform {

struct PixelSize {
  int width = 0;
  int height = 0;
};

// The primary display's mode in pixels, through SDL's video subsystem.
class PrimaryDisplay {
 public:
  // Nullopt when no display answers. Skipped without asking SDL when the
  // video driver is "dummy" or "offscreen" or no X11 or Wayland display is
  // named; otherwise the video subsystem is initialised only for the query
  // and released again, so a host that owns SDL keeps its own reference.
  static std::optional<PixelSize> query() noexcept;
};

}  // namespace zivora::platform
