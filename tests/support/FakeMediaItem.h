#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/dispatch/Queue.h"
#include "platform/media/MediaItem.h"

namespace zivora::test {

// An item driven by the test. What a real item would report comes through
// the main queue, as it does from a real pipeline: run the runtime after
// each call.
class FakeMediaItem final : public media::MediaItem {
 public:
  FakeMediaItem(std::shared_ptr<media::MediaAsset> asset, dispatch::Queue& mainQueue);

  const std::shared_ptr<media::MediaAsset>& asset() const override { return asset_; }
  media::MediaItemStatus status() const override { return status_; }
  media::MediaTime duration() const override { return duration_; }
  std::string error() const override { return error_; }
  void seekTo(media::MediaTime time) override { seeks_.push_back(time); }
  void setObserver(media::MediaItemObserver observer) override;

  // The test's controls.
  void setDuration(media::MediaTime duration) { duration_ = duration; }
  // Posts the status change (ReadyToPlay or Failed).
  void postStatus(media::MediaItemStatus status, std::string error = {});
  void postPlayedToEnd();
  void postFailedToPlayToEnd(std::string error = "decoding failed");
  void postStall();

  const std::vector<media::MediaTime>& seeks() const { return seeks_; }
  bool hasObserver() const { return observed_; }

 private:
  void post(std::function<void(const media::MediaItemObserver&)> notify);

  std::shared_ptr<media::MediaAsset> asset_;
  dispatch::Queue& mainQueue_;
  media::MediaItemStatus status_ = media::MediaItemStatus::Unknown;
  media::MediaTime duration_ = media::MediaTime::invalid();
  std::string error_;
  std::vector<media::MediaTime> seeks_;
  media::MediaItemObserver observer_;
  bool observed_ = false;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zivora::test
