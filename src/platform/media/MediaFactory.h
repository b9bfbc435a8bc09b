#pragma once

#include <memory>

#include "platform/media/MediaAsset.h"
#include "platform/media/MediaItem.h"
#include "platform/media/MediaPlayer.h"

namespace zivora::media {

// Makes items and players: the GStreamer one in the SDK, a fake in tests.
class MediaFactory {
 public:
  virtual ~MediaFactory() = default;
  // An item is likely to be asked for soon: starts what an item would
  // otherwise wait for.
  virtual void prepare() {}
  virtual std::shared_ptr<MediaItem> makeItem(std::shared_ptr<MediaAsset> asset) = 0;
  virtual std::shared_ptr<MediaPlayer> makePlayer(std::shared_ptr<MediaItem> item) = 0;
};

}  // namespace zivora::media
