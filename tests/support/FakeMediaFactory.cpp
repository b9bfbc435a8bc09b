#include "support/FakeMediaFactory.h"

namespace zivora::test {

std::shared_ptr<media::MediaItem> FakeMediaFactory::makeItem(
    std::shared_ptr<media::MediaAsset> asset) {
  items_.push_back(std::make_shared<FakeMediaItem>(std::move(asset), mainQueue_));
  return items_.back();
}

std::shared_ptr<media::MediaPlayer> FakeMediaFactory::makePlayer(
    std::shared_ptr<media::MediaItem> item) {
  players_.push_back(std::make_shared<FakeMediaPlayer>(std::move(item)));
  return players_.back();
}

}  // namespace zivora::test
