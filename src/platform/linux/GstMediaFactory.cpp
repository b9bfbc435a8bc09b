#include "platform/linux/GstMediaFactory.h"

#include <chrono>
#include <stdexcept>

#include "platform/linux/GstMediaPlayer.h"
#include "platform/linux/GstreamerInit.h"

namespace zivora::platform {

namespace {
// Enough for the tries of a quiet machine; one that blocks is given up on
// by the choice itself.
constexpr auto kProbeWait = std::chrono::seconds(1);
}  // namespace

GstMediaFactory::~GstMediaFactory() {
  if (options_.audio == AudioOutput::Automatic) choice().awaitProbe(kProbeWait);
}

// GStreamer starts on this thread, which the item needs it on anyway: the
// probe's thread then only opens outputs.
void GstMediaFactory::prepare() {
  if (options_.audio == AudioOutput::Automatic && ensureGstreamer()) choice().prepare();
}

SoundOutputChoice& GstMediaFactory::choice() const {
  return options_.sound ? *options_.sound : *SoundOutputChoice::shared();
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
