#pragma once

#include <memory>

#include "platform/media/MediaPlayer.h"

namespace zivora::test {

// A player driven by the test: its clock moves only when the test says so
// (a player that "does not advance" is simply one the test leaves alone).
class FakeMediaPlayer final : public media::MediaPlayer {
 public:
  explicit FakeMediaPlayer(std::shared_ptr<media::MediaItem> item) : item_(std::move(item)) {}

  const std::shared_ptr<media::MediaItem>& currentItem() const override { return item_; }
  void play() override;
  void pause() override;
  float rate() const override { return rate_; }
  media::MediaTime currentTime() const override { return currentTime_; }
  std::string error() const override { return item_ ? item_->error() : std::string(); }
  void setMuted(bool muted) override { muted_ = muted; }
  bool isMuted() const override { return muted_; }
  void setFrameSink(media::FrameSink* sink) override { sink_ = sink; }

  // The test's controls.
  void setCurrentTime(media::MediaTime time) { currentTime_ = time; }
  void advanceBy(media::MediaTime span) { currentTime_ = currentTime_ + span; }
  // Hands `frame` to the frame sink, if one is set.
  void deliverFrame(const media::VideoFrame& frame);

  int playCount() const { return playCount_; }

 private:
  std::shared_ptr<media::MediaItem> item_;
  float rate_ = 0;
  media::MediaTime currentTime_ = media::MediaTime::zero();
  bool muted_ = false;
  media::FrameSink* sink_ = nullptr;
  int playCount_ = 0;
};

}  // namespace zivora::test
