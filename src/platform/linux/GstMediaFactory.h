#pragma once

#include "platform/dispatch/Queue.h"
#include "platform/linux/GstMediaItem.h"
#include "platform/media/MediaFactory.h"

namespace zivora::platform {

// Items and players on GStreamer; their notifications and frames arrive on
// `mainQueue`.
class GstMediaFactory final : public media::MediaFactory {
 public:
  explicit GstMediaFactory(dispatch::Queue& mainQueue, GstPlaybackOptions options = {})
      : mainQueue_(mainQueue), options_(options) {}
  // Gives a search for the sound output that is under way a moment to end:
  // none of it should still run while a process that is done with the SDK
  // exits.
  ~GstMediaFactory() override;

  // With the machine's sound output, starts looking for it.
  void prepare() override;

  std::shared_ptr<media::MediaItem> makeItem(std::shared_ptr<media::MediaAsset> asset) override;
  // Throws std::invalid_argument for an item this factory did not make.
  std::shared_ptr<media::MediaPlayer> makePlayer(std::shared_ptr<media::MediaItem> item) override;

 private:
  SoundOutputChoice& choice() const;

  dispatch::Queue& mainQueue_;
  const GstPlaybackOptions options_;
};

}  // namespace zivora::platform
