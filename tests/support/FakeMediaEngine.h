#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/media/MediaPlayer.h"

namespace zivora::test {

// An item the test drives: it becomes ready, fails, ends or stalls when
// told, and tells its observer at once (tests run on the main queue).
class FakeMediaItem final : public platform::MediaItem {
 public:
  explicit FakeMediaItem(platform::MediaAsset asset) : asset_(std::move(asset)) {}

  platform::MediaItemStatus status() const override { return status_; }
  platform::MediaTime duration() const override { return duration_; }
  void seekToTime(platform::MediaTime time) override { seeks_.push_back(time); }
  void setObserver(std::weak_ptr<platform::MediaItemObserver> observer) override {
    observer_ = std::move(observer);
  }
  void cancelLoading() override { ++cancelled_; }

  void becomeReady(double durationSeconds);
  void fail();
  void playToEnd();
  void failToPlayToEnd();
  void stall();

  const platform::MediaAsset& asset() const { return asset_; }
  const std::vector<platform::MediaTime>& seeks() const { return seeks_; }
  int cancelled() const { return cancelled_; }
  bool observed() const { return !observer_.expired(); }

 private:
  platform::MediaAsset asset_;
  platform::MediaItemStatus status_ = platform::MediaItemStatus::Unknown;
  platform::MediaTime duration_;
  std::vector<platform::MediaTime> seeks_;
  std::weak_ptr<platform::MediaItemObserver> observer_;
  int cancelled_ = 0;
};

// A player whose clock moves only when the test advances it while playing.
class FakeMediaPlayer final : public platform::MediaPlayer {
 public:
  explicit FakeMediaPlayer(std::shared_ptr<FakeMediaItem> item);

  std::shared_ptr<platform::MediaItem> currentItem() const override { return item_; }
  void play() override;
  void pause() override { rate_ = 0; }
  float rate() const override { return rate_; }
  platform::MediaTime currentTime() const override { return time_; }
  bool hasError() const override { return false; }
  void setMuted(bool muted) override { muted_ = muted; }
  bool isMuted() const override { return muted_; }
  void setFrameSink(FrameSink sink) override { sink_ = std::move(sink); }

  // Moves the clock by `seconds` when playing (a stuck player: `stuck`).
  void advance(double seconds);
  void setStuck(bool stuck) { stuck_ = stuck; }
  void deliverFrame(int width, int height);
  int playCalls() const { return playCalls_; }
  std::shared_ptr<FakeMediaItem> item() const { return item_; }

 private:
  std::shared_ptr<FakeMediaItem> item_;
  float rate_ = 0;
  platform::MediaTime time_ = platform::MediaTime::zero();
  bool muted_ = false;
  bool stuck_ = false;
  int playCalls_ = 0;
  FrameSink sink_;
};

class FakeMediaEngine final : public platform::MediaEngine {
 public:
  std::shared_ptr<platform::MediaItem> makeItem(const platform::MediaAsset& asset) override;
  std::shared_ptr<platform::MediaPlayer> makePlayer(
      std::shared_ptr<platform::MediaItem> item) override;

  std::shared_ptr<FakeMediaItem> lastItem() const {
    return items_.empty() ? nullptr : items_.back();
  }
  std::shared_ptr<FakeMediaPlayer> lastPlayer() const {
    return players_.empty() ? nullptr : players_.back();
  }
  std::size_t itemCount() const { return items_.size(); }

 private:
  std::vector<std::shared_ptr<FakeMediaItem>> items_;
  std::vector<std::shared_ptr<FakeMediaPlayer>> players_;
};

}  // namespace zivora::test
