#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/media/MediaAsset.h"
#include "platform/media/MediaTime.h"

namespace zivora::media {

enum class MediaItemStatus { Unknown, ReadyToPlay, Failed };

// What an item tells its observer. Every call comes on the main queue.
struct MediaItemObserver {
  // Once per item: Unknown → ReadyToPlay or Unknown → Failed.
  std::function<void(MediaItemStatus)> statusChanged;
  std::function<void()> playedToEnd;
  // An error after the item was ready.
  std::function<void()> failedToPlayToEnd;
  // A read of a custom-loader asset waits for bytes while playing.
  std::function<void()> playbackStalled;
};

// One playable presentation of an asset. Made by a MediaFactory; it starts
// loading at once. Main queue only.
class MediaItem {
 public:
  virtual ~MediaItem() = default;

  virtual const std::shared_ptr<MediaAsset>& asset() const = 0;
  virtual MediaItemStatus status() const = 0;
  // Invalid until the item is ready.
  virtual MediaTime duration() const = 0;
  // The error that failed the item, or empty.
  virtual std::string error() const = 0;

  // Seeks exactly to `time` (zero tolerance before and after). Before the
  // item is ready this sets where it becomes ready.
  virtual void seekTo(MediaTime time) = 0;

  // Replaces the observer; an empty one stops the notifications.
  virtual void setObserver(MediaItemObserver observer) = 0;
};

}  // namespace zivora::media
