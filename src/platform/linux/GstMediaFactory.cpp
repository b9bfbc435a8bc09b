#include "platform/linux/GstMediaFactory.h"

#include <stdexcept>

#include "platform/linux/GstMediaPlayer.h"
#include "platform/linux/SoundOutputChoice.h"

namespace zivora::platform {

GstMediaFactory::GstMediaFactory(dispatch::Queue& mainQueue, GstPlaybackOptions options)
    : mainQueue_(mainQueue), options_(options) {
  if (options_.audio == AudioOutput::Automatic) SoundOutputChoice::shared().prepare();
}

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
