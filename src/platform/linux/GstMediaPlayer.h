#pragma once

#include <memory>

#include "platform/linux/GstMediaItem.h"
#include "platform/media/MediaPlayer.h"

namespace zivora::platform {

// The player of one GStreamer item: the item's pipeline does the work, the
// player holds the rate and drives the pipeline's state. Main queue only.
class GstMediaPlayer final : public media::MediaPlayer {
 public:
  explicit GstMediaPlayer(std::shared_ptr<GstMediaItem> item);
  ~GstMediaPlayer() override;

  const std::shared_ptr<media::MediaItem>& currentItem() const override { return item_; }
  void play() override;
  void pause() override;
  float rate() const override { return rate_; }
  media::MediaTime currentTime() const override;
  std::string error() const override { return item_->error(); }
  void setMuted(bool muted) override;
  bool isMuted() const override;
  void setFrameSink(media::FrameSink* sink) override;

 private:
  std::shared_ptr<media::MediaItem> item_;
  GstMediaItem& pipeline_;
  float rate_ = 0;
};

}  // namespace zivora::platform
