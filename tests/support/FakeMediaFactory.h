#pragma once

#include <memory>
#include <vector>

#include "platform/dispatch/Queue.h"
#include "platform/media/MediaFactory.h"
#include "support/FakeMediaItem.h"
#include "support/FakeMediaPlayer.h"

namespace zivora::test {

// Makes fake items and players and keeps them for the test to drive.
class FakeMediaFactory final : public media::MediaFactory {
 public:
  explicit FakeMediaFactory(dispatch::Queue& mainQueue) : mainQueue_(mainQueue) {}

  std::shared_ptr<media::MediaItem> makeItem(std::shared_ptr<media::MediaAsset> asset) override;
  std::shared_ptr<media::MediaPlayer> makePlayer(std::shared_ptr<media::MediaItem> item) override;

  const std::vector<std::shared_ptr<FakeMediaItem>>& items() const { return items_; }
  const std::vector<std::shared_ptr<FakeMediaPlayer>>& players() const { return players_; }
  // The latest ones (null before any was made).
  FakeMediaItem* lastItem() const { return items_.empty() ? nullptr : items_.back().get(); }
  FakeMediaPlayer* lastPlayer() const { return players_.empty() ? nullptr : players_.back().get(); }

 private:
  dispatch::Queue& mainQueue_;
  std::vector<std::shared_ptr<FakeMediaItem>> items_;
  std::vector<std::shared_ptr<FakeMediaPlayer>> players_;
};

}  // namespace zivora::test
