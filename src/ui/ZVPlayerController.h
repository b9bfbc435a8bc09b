#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/dispatch/Queue.h"
#include "resources/ZVDownloadDelegate.h"
#include "ui/ZVPlayerControllerDelegate.h"
#include "ui/ZVVideoView.h"
#include "ui/ZVVideoViewDelegate.h"

namespace zivora::ui {

// Prepares and plays one ad video. It decides when enough of a video that
// is still downloading is on disk to start playback (more than
// `bufferSize()` bytes: 409600 until the download announces the full size,
// then 30 % of it), owns the full-screen video view, resumes playback that
// overtook the download once `bufferSize()` more bytes have arrived, and
// passes the view's events on to its delegate.
//
// The view's item is made as soon as the first bytes of a downloading video
// are on disk: its set-up (the pipeline, the sound output, finding the
// file's type and streams) needs none of the buffer and so overlaps the
// download. The delegate still hears that the player is prepared only once
// the item is ready and the buffer is on disk.
//
// The view is made and driven on the main queue; download callbacks arrive
// there too; `prepareFromURL` may be called from any thread.
class ZVPlayerController : public ZVDownloadDelegate,
                           public ZVVideoViewDelegate,
                           public std::enable_shared_from_this<ZVPlayerController> {
 public:
  ZVPlayerController();
  ~ZVPlayerController() override;

  void setDelegate(std::weak_ptr<ZVPlayerControllerDelegate> delegate);
  // The video view; null until `prepareFromURL` made it (main queue).
  std::shared_ptr<ZVVideoView> view() const;

  void prepareFromURL(const std::string& url, const std::string& fileName);
  // More than `bufferSize()` bytes (or the whole file) on disk.
  bool isPreparedFile();
  // The file is prepared and the view's item is ready to play.
  bool isPrepared();
  void play();
  void stop();

  void setSoundEnable(bool soundEnable);
  void setAllowSkipAfter(float seconds);
  std::int32_t bufferSize() const;

  // ZVDownloadDelegate
  void startLoading(const std::string& fileName) override;
  void receiveData(std::int64_t bytes) override;
  void finishLoading(const std::string& fileName) override;
  void errorLoadingResource(const std::string& fileName, std::int32_t error) override;

  // ZVVideoViewDelegate
  void preparedVideoView() override;
  void errorPlayVideoItem() override;
  void didHideView() override;
  void didShowView() override;
  void finishedPlaying() override;
  void tapCloseView() override;
  void failDuringPlayVideo(media::MediaTime time, bool cacheVideo) override;

 private:
  // The view's screen, player and files, taken from the installed context.
  static ZVVideoView::Environment makeEnvironment();
  // Runs `task` on the main queue: at once when already there.
  static void onMain(dispatch::Task task);
  // Makes the view with this controller as its delegate (main queue).
  std::shared_ptr<ZVVideoView> makeView();
  // What every download notice does before anything else (main queue).
  void progress();
  // Resumes a stalled playback once enough arrived since the stall.
  void resumeIfBuffered();
  // Tells the delegate once the item is ready and the buffer is on disk,
  // whichever comes last (main queue).
  void notifyPreparedWhenBuffered();
  std::string videoFileName() const;
  std::shared_ptr<ZVPlayerControllerDelegate> delegate() const { return delegate_.lock(); }

  // The view and the file name are written on the caller's thread or the
  // main queue and read on both; the flags are plain atomics.
  mutable std::mutex mutex_;
  std::shared_ptr<ZVVideoView> videoView_;
  std::string videoFileName_;
  std::atomic<bool> needPrepareVideoView_{false};
  // The item became ready before the buffer was on disk.
  std::atomic<bool> readyBeforeBuffer_{false};
  std::atomic<std::int64_t> loadedSizeOnFail_{0};
  std::atomic<bool> failDuringPlaying_{false};
  std::atomic<std::int32_t> bufferSize_;
  std::atomic<bool> isFinishedPlaying_{false};
  std::atomic<bool> soundEnable_{true};
  std::atomic<float> allowSkipAfter_{0};
  std::weak_ptr<ZVPlayerControllerDelegate> delegate_;
};

}  // namespace zivora::ui
