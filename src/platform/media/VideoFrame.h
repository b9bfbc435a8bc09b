#pragma once

#include <cstdint>
#include <vector>

#include "platform/media/MediaTime.h"

namespace zivora::media {

// One decoded picture in cairo's ARGB32 layout: a native-endian 32-bit word
// 0xAARRGGBB a pixel (B, G, R, A in memory on little-endian machines),
// opaque, `stride` bytes a row. The screens draw it as it is.
struct VideoFrame {
  int width = 0;
  int height = 0;
  int stride = 0;
  MediaTime presentationTime;
  std::vector<std::uint8_t> pixels;
};

// Where a player puts its pictures; the presenter uploads them. Called on
// the main queue with the newest frame only: frames the main queue had no
// time for are dropped, never queued up.
class FrameSink {
 public:
  virtual ~FrameSink() = default;
  virtual void videoFrame(const VideoFrame& frame) = 0;
  // The same, for a frame the player hands over for good: a sink that keeps
  // the picture may swap the frame's pixels for a buffer of its own, which
  // the player then fills with a later picture, instead of copying them.
  virtual void takeFrame(VideoFrame& frame) { videoFrame(frame); }
};

}  // namespace zivora::media
