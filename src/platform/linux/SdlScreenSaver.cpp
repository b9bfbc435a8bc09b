#include <SDL.h>

#include "platform/ScreenSaver.h"

namespace zivora::platform {

bool ScreenSaver::isDisabled() {
  return SDL_WasInit(SDL_INIT_VIDEO) != 0 && SDL_IsScreenSaverEnabled() == SDL_FALSE;
}

void ScreenSaver::setDisabled(bool disabled) {
  if (SDL_WasInit(SDL_INIT_VIDEO) == 0) return;
  if (disabled)
    SDL_DisableScreenSaver();
  else
    SDL_EnableScreenSaver();
}

}  // namespace zivora::platform
