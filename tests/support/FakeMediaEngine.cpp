#include "support/FakeMediaEngine.h"

namespace zivora::test {

using platform::MediaItemStatus;
using platform::MediaTime;

void FakeMediaItem::becomeReady(double durationSeconds) {
  duration_ = MediaTime::fromSeconds(durationSeconds);
  status_ = MediaItemStatus::ReadyToPlay;
  if (auto observer = observer_.lock()) observer->itemStatusChanged(status_);
}

void FakeMediaItem::fail() {
  status_ = MediaItemStatus::Failed;
  if (auto observer = observer_.lock()) observer->itemStatusChanged(status_);
}

void FakeMediaItem::playToEnd() {
  if (auto observer = observer_.lock()) observer->itemDidPlayToEndTime();
}

void FakeMediaItem::failToPlayToEnd() {
  if (auto observer = observer_.lock()) observer->itemFailedToPlayToEndTime();
}

void FakeMediaItem::stall() {
  if (auto observer = observer_.lock()) observer->itemPlaybackStalled();
}

FakeMediaPlayer::FakeMediaPlayer(std::shared_ptr<FakeMediaItem> item) : item_(std::move(item)) {
  // A player starts where its item was sought to.
  if (!item_->seeks().empty()) time_ = item_->seeks().back();
}

void FakeMediaPlayer::play() {
  ++playCalls_;
  rate_ = 1;
}

void FakeMediaPlayer::advance(double seconds) {
  if (rate_ == 0 || stuck_) return;
  time_ = MediaTime::fromSeconds(time_.seconds() + seconds);
}

void FakeMediaPlayer::deliverFrame(int width, int height) {
  if (!sink_) return;
  // A gradient, so a picture that is cropped, stretched or misplaced shows.
  auto pixels =
      std::make_shared<std::vector<std::uint8_t>>(static_cast<std::size_t>(width * height * 4));
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      std::uint8_t* p = pixels->data() + (y * width + x) * 4;
      p[0] = static_cast<std::uint8_t>(x * 255 / width);   // blue
      p[1] = static_cast<std::uint8_t>(y * 255 / height);  // green
      p[2] = 0x80;                                         // red
      p[3] = 0xff;
    }
  }
  sink_(platform::VideoFrame{width, height, width * 4, std::move(pixels)});
}

std::shared_ptr<platform::MediaItem> FakeMediaEngine::makeItem(const platform::MediaAsset& asset) {
  items_.push_back(std::make_shared<FakeMediaItem>(asset));
  return items_.back();
}

std::shared_ptr<platform::MediaPlayer> FakeMediaEngine::makePlayer(
    std::shared_ptr<platform::MediaItem> item) {
  players_.push_back(
      std::make_shared<FakeMediaPlayer>(std::static_pointer_cast<FakeMediaItem>(item)));
  return players_.back();
}

}  // namespace zivora::test
