#pragma once

#include <memory>
#include <string>

#include "platform/media/MediaItem.h"
#include "platform/media/MediaTime.h"
#include "platform/media/VideoFrame.h"

namespace zivora::media {

// Plays one item. Main queue only.
class MediaPlayer {
 public:
  virtual ~MediaPlayer() = default;

  virtual const std::shared_ptr<MediaItem>& currentItem() const = 0;

  virtual void play() = 0;
  virtual void pause() = 0;
  // 1 after play(), 0 after pause() (and at first).
  virtual float rate() const = 0;
  // The playback position; zero before the item has one.
  virtual MediaTime currentTime() const = 0;
  // The error that stopped the player (the item's), or empty.
  virtual std::string error() const = 0;

  virtual void setMuted(bool muted) = 0;
  virtual bool isMuted() const = 0;

  // Where pictures go; null stops them. The sink must outlive the player or
  // be replaced first.
  virtual void setFrameSink(FrameSink* sink) = 0;
};

}  // namespace zivora::media
