#pragma once

#include "platform/dispatch/Queue.h"
#include "platform/linux/GstMediaItem.h"
#include "platform/media/MediaFactory.h"

namespace zivora::platform {

// Items and players on GStreamer; their notifications and frames arrive on
// `mainQueue`.
class GstMediaFactory final : public media::MediaFactory {
 public:
  // With the machine's sound output, starts looking for it (see
  // SoundOutputChoice) so the first item need not wait for the tries.
  explicit GstMediaFactory(dispatch::Queue& mainQueue, GstPlaybackOptions options = {});

  std::shared_ptr<media::MediaItem> makeItem(std::shared_ptr<media::MediaAsset> asset) override;
  // Throws std::invalid_argument for an item this factory did not make.
  std::shared_ptr<media::MediaPlayer> makePlayer(std::shared_ptr<media::MediaItem> item) override;

 private:
  dispatch::Queue& mainQueue_;
  const GstPlaybackOptions options_;
};

}  // namespace zivora::platform
