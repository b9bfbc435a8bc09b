#include <SDL.h>
#include <SDL_image.h>

#include <memory>

#include "platform/ImageDecoder.h"

namespace zivora::platform {
namespace {

struct SdlSurfaceDeleter {
  void operator()(SDL_Surface* s) const { SDL_FreeSurface(s); }
};
using SdlSurface = std::unique_ptr<SDL_Surface, SdlSurfaceDeleter>;

}  // namespace

std::optional<DecodedImage> ImageDecoder::decode(const std::filesystem::path& path,
                                                 std::string& why) {
  SdlSurface decoded(IMG_Load(path.c_str()));
  if (!decoded) {
    why = IMG_GetError();
    return std::nullopt;
  }
  SdlSurface argb(SDL_ConvertSurfaceFormat(decoded.get(), SDL_PIXELFORMAT_ARGB8888, 0));
  if (!argb) {
    why = SDL_GetError();
    return std::nullopt;
  }
  DecodedImage image;
  image.width = argb->w;
  image.height = argb->h;
  image.pixels.reserve(static_cast<std::size_t>(argb->w) * static_cast<std::size_t>(argb->h));
  for (int y = 0; y < argb->h; ++y) {
    const auto* row = static_cast<const Uint32*>(argb->pixels) + y * (argb->pitch / 4);
    image.pixels.insert(image.pixels.end(), row, row + argb->w);
  }
  return image;
}

}  // namespace zivora::platform
