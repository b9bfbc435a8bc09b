#pragma once

#include "platform/media/MediaTime.h"

namespace zivora::ui {

// What the video view tells its owner, the player controller, on the main
// queue. The calls with a body are optional: an owner that does not
// override them is not told.
class ZVVideoViewDelegate {
 public:
  virtual ~ZVVideoViewDelegate() = default;
  // The item reached ready-to-play (not during a resume after an error).
  virtual void preparedVideoView() = 0;
  // The item failed before it was ready (not during a resume after an error).
  virtual void errorPlayVideoItem() = 0;
  virtual void didHideView() = 0;
  virtual void didShowView() {}
  virtual void finishedPlaying() {}
  // The skip control was tapped while ready.
  virtual void tapCloseView() {}
  // Playback failed (`cacheVideo` true: the player reported it) or never
  // started (false: the start watchdog found it stuck) at `time`.
  virtual void failDuringPlayVideo(media::MediaTime time, bool cacheVideo) {
    (void)time;
    (void)cacheVideo;
  }
};

}  // namespace zivora::ui
