#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace zivora::platform {

// One decoded picture: 32-bit pixels, premultiplied, in the byte order of
// a cairo ARGB32 surface on this machine (B, G, R, A in memory on little
// endian), `stride` bytes a row. Shared, so a presenter can keep the last
// frame without copying it.
struct VideoFrame {
  int width = 0;
  int height = 0;
  int stride = 0;
  std::shared_ptr<const std::vector<std::uint8_t>> pixels;
};

}  // namespace zivora::platform
