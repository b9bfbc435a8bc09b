#pragma once

#include "ui/Geometry.h"
#include "zivora/HostOptions.h"

namespace zivora::ui {

// The presenting surface: its logical size in points ("the main screen's
// bounds"), its scale (pixels per point) and the host's safe-area insets.
struct Screen {
  Size size{};
  double scale = 1;
  SafeAreaInsets insets{};

  Rect bounds() const { return {{0, 0}, size}; }
  // The bounds inset by the safe area.
  Rect safeAreaRect() const {
    return {{insets.left, insets.top},
            {size.width - insets.left - insets.right, size.height - insets.top - insets.bottom}};
  }
};

}  // namespace zivora::ui
