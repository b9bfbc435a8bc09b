#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/media/MediaTime.h"
#include "platform/media/YuvPicture.h"

namespace zivora::media {

// One decoded picture in cairo's ARGB32 layout: a native-endian 32-bit word
// 0xAARRGGBB a pixel (B, G, R, A in memory on little-endian machines),
// opaque, `stride` bytes a row. The screens draw it as it is. For a sink
// that takes pictures as the decoder made them, `yuv` holds the picture
// instead and `pixels` stays empty.
struct VideoFrame {
  int width = 0;
  int height = 0;
  int stride = 0;
  MediaTime presentationTime;
  std::vector<std::uint8_t> pixels;
  std::shared_ptr<const YuvPicture> yuv = nullptr;
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
  // Whether the sink converts 4:2:0 pictures itself (`VideoFrame::yuv`);
  // asked when the sink is set. Others get every picture converted.
  virtual bool takesYuvPictures() const { return false; }
};

}  // namespace zivora::media
