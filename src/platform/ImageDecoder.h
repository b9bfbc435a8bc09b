#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace zivora::platform {

// A decoded picture: `width` x `height` pixels, row by row, each a 32-bit
// 0xAARRGGBB value with straight (not premultiplied) alpha.
struct DecodedImage {
  int width = 0;
  int height = 0;
  std::vector<std::uint32_t> pixels;
};

// Decodes the image files ads bring (PNG, JPEG, WebP). Defined by the Linux
// implementation (SDL_image).
class ImageDecoder {
 public:
  // Nil, with the decoder's reason in `why`, when the file is missing or
  // does not decode.
  static std::optional<DecodedImage> decode(const std::filesystem::path& path, std::string& why);
};

}  // namespace zivora::platform
