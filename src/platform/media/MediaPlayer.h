#pragma once

#include <functional>
#include <memory>

#include "platform/media/MediaAsset.h"
#include "platform/media/MediaItem.h"
#include "platform/media/VideoFrame.h"

namespace zivora::platform {

// Plays one item. Main queue only; frames reach the sink on the main queue.
class MediaPlayer {
 public:
  using FrameSink = std::function<void(const VideoFrame& frame)>;

  virtual ~MediaPlayer() = default;
  virtual std::shared_ptr<MediaItem> currentItem() const = 0;
  virtual void play() = 0;
  virtual void pause() = 0;
  // 0 while paused or stopped.
  virtual float rate() const = 0;
  // The position; zero before anything played.
  virtual MediaTime currentTime() const = 0;
  virtual bool hasError() const = 0;
  virtual void setMuted(bool muted) = 0;
  virtual bool isMuted() const = 0;
  virtual void setFrameSink(FrameSink sink) = 0;
};

// Makes items and players: GStreamer in the library, a scripted fake in
// tests.
class MediaEngine {
 public:
  virtual ~MediaEngine() = default;
  virtual std::shared_ptr<MediaItem> makeItem(const MediaAsset& asset) = 0;
  virtual std::shared_ptr<MediaPlayer> makePlayer(std::shared_ptr<MediaItem> item) = 0;
};

}  // namespace zivora::platform
