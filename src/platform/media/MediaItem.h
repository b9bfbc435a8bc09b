#pragma once

#include <memory>

#include "platform/media/MediaTime.h"

namespace zivora::platform {

enum class MediaItemStatus { Unknown, ReadyToPlay, Failed };

// What an item tells its observer, always on the main queue. The status
// changes once: ready after the player has prerolled it (and made the
// initial seek), failed on an error before that.
class MediaItemObserver {
 public:
  virtual ~MediaItemObserver() = default;
  virtual void itemStatusChanged(MediaItemStatus status) = 0;
  virtual void itemDidPlayToEndTime() = 0;
  // An error after the item was ready.
  virtual void itemFailedToPlayToEndTime() = 0;
  // A read waits for bytes that are not there yet while playing.
  virtual void itemPlaybackStalled() = 0;
};

// One playable video: an asset positioned at a start time.
class MediaItem {
 public:
  virtual ~MediaItem() = default;
  virtual MediaItemStatus status() const = 0;
  // Invalid until known.
  virtual MediaTime duration() const = 0;
  // Exactly there: no tolerance before or after.
  virtual void seekToTime(MediaTime time) = 0;
  virtual void setObserver(std::weak_ptr<MediaItemObserver> observer) = 0;
  // Fails every read the item's asset waits on and stops new ones, so that
  // stopping never waits for bytes that will not come.
  virtual void cancelLoading() = 0;
};

}  // namespace zivora::platform
