#include "platform/linux/PrimaryDisplay.h"

#include <SDL.h>

#include <cstdlib>
#include <string_view>

namespace zivora::platform {

namespace {

bool displayNamed() {
  if (const char* driver = std::getenv("SDL_VIDEODRIVER")) {
    std::string_view name = driver;
    if (name == "dummy" || name == "offscreen") return false;
  }
  for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY"}) {
    if (const char* value = std::getenv(variable); value && *value) return true;
  }
  return false;
}

}  // namespace

std::optional<PixelSize> PrimaryDisplay::query() noexcept {
  if (!displayNamed()) return std::nullopt;
  if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0) return std::nullopt;
  SDL_DisplayMode mode{};
  std::optional<PixelSize> size;
  if (SDL_GetDesktopDisplayMode(0, &mode) == 0 && mode.w > 0 && mode.h > 0)
    size = PixelSize{mode.w, mode.h};
  SDL_QuitSubSystem(SDL_INIT_VIDEO);
  return size;
}

}  // namespace zivora::platform
