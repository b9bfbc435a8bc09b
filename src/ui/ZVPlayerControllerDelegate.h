#pragma once

#include <cstdint>

namespace zivora::ui {

// What the player controller tells the placement controller that owns it.
// Calls arrive on the main queue. The calls with a body are optional: an
// owner that does not override them is not told.
class ZVPlayerControllerDelegate {
 public:
  virtual ~ZVPlayerControllerDelegate() = default;

  // The player is about to appear (called from `play`).
  virtual void videoWindowWillDisplay() {}
  // Enough of the video is on disk and the item is ready to play.
  virtual void playerControllerPrepared() {}
  // The video's download has completed.
  virtual void finishLoadingFile() {}
  // 0: the download failed; 1: the player item failed.
  virtual void errorPlayingVideo(std::int32_t /*error*/) {}
  // The skip control (or the late close button) was used.
  virtual void tapCloseView() {}
  virtual void didShowView() {}
  virtual void didHideView() {}
  // The video played to its end; reported once per preparation.
  virtual void finishedPlaying() {}
};

}  // namespace zivora::ui
