#include "platform/linux/GstMediaFactory.h"

#include <stdexcept>

#include "platform/linux/GstMediaPlayer.h"

namespace zivora::platform {

std::shared_ptr<media::MediaItem> GstMediaFactory::makeItem(
    std::shared_ptr<media::MediaAsset> asset) {
  return GstMediaItem::make(std::move(asset), mainQueue_, options_);
}

std::shared_ptr<media::MediaPlayer> GstMediaFactory::makePlayer(
    std::shared_ptr<media::MediaItem> item) {
  auto gstItem = std::dynamic_pointer_cast<GstMediaItem>(std::move(item));
  if (!gstItem) throw std::invalid_argument("not a GStreamer item");
  return std::make_shared<GstMediaPlayer>(std::move(gstItem));
}

}  // namespace zivora::platform
