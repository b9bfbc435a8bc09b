#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/dispatch/Queue.h"
#include "platform/media/MediaFactory.h"
#include "ui/AppLifecycle.h"
#include "ui/Button.h"
#include "ui/Presenter.h"
#include "ui/ZVPlayerView.h"
#include "ui/ZVSkipButton.h"
#include "ui/ZVTimerCircularProgress.h"
#include "ui/ZVVideoViewDelegate.h"

namespace zivora::ui {

// The full-screen view a video ad plays in: the player's picture, a skip
// control (top left), a countdown (top right), a sound switch (bottom left)
// and an invisible full-screen button that shows and hides them. It slides
// in from the bottom and out again, keeps the controls in step with
// playback, restarts a player that accepted play but does not advance, and
// reports failures with their time so its owner can resume. Main queue only.
class ZVVideoView : public View {
 public:
  // What the view works with. Timers and callbacks of a view may outlive
  // the context that made it (a reset), so it shares the ownership of what
  // it uses; the presenter is held weakly because the presenter's windows
  // hold the view, and a view whose presenter has gone animates nothing.
  struct Environment {
    std::weak_ptr<Presenter> presenter;
    std::shared_ptr<media::MediaFactory> media;
    std::shared_ptr<AppLifecycle> lifecycle;
    std::shared_ptr<dispatch::Queue> mainQueue;
    // The asset to play for a cache file name (possibly still downloading).
    std::function<std::shared_ptr<media::MediaAsset>(const std::string& fileName)> assetForFile;
    // The local file of a downloaded resource URL.
    std::function<std::filesystem::path(const std::string& url)> pathForURL;
    std::optional<std::string> soundOnButtonURL;
    std::optional<std::string> soundOffButtonURL;
  };

  explicit ZVVideoView(Environment environment);
  ~ZVVideoView() override;

  void setDelegate(std::weak_ptr<ZVVideoViewDelegate> delegate) { delegate_ = std::move(delegate); }

  void soundEnable(bool enable);
  // The skip control's duration; negative hides it.
  void allowSkipAfer(float seconds);
  void prepareItem(const std::string& fileName, media::MediaTime time);
  void show(const std::string& fileName);
  bool isReady();
  float getDuration() const { return duration_; }
  bool isPlaying();
  void hide();
  void stop();
  void continuePlayingAfterError();
  void showCloseButton();
  std::shared_ptr<ZVPlayerView> getPlayerView() const { return playerView_.lock(); }
  void rotateView() {}

  // The taps' handlers; the key and controller bindings call them too.
  void swithUIHandler();
  void skipVideoHandler();
  void soundSwitchHandler();
  void closeHandler();

  std::shared_ptr<ZVSkipButton> skipButton() const { return skipButton_; }
  std::shared_ptr<ZVTimerCircularProgress> timerProgress() const { return timerProgress_; }
  std::shared_ptr<Button> soundButton() const { return soundButton_; }
  std::shared_ptr<Button> hiddenButton() const { return hiddenButton_; }
  bool controlsShown() const { return showButtons_; }
  bool hasAnimation() const { return hasAnimation_; }
  bool soundOn() const { return soundOn_; }
  float currentTime() const;
  float remainingTime() const;

  void layoutSubviews() override;

 private:
  void setup();
  void addVideoView();
  void addHiddenButton();
  void addSoundButton();
  void addTimeProgress();
  void addSkipProgress();
  void registObservers(const std::shared_ptr<media::MediaItem>& item);
  void unregistObservers(const std::shared_ptr<media::MediaItem>& item);
  void animateShow();
  void animateHide();
  void play();
  void pauseApp();
  void resumeApp();
  void showUI();
  void hideUI();
  void shiftDelayHideUI();
  void validateSoundButton();
  void allowSkip();
  void startAllowSkipTimer();
  void stopAllowSkipTimer();
  void startUpdateTimer();
  void stopUpdateTimer();
  void updateTimer();
  void startCheckPlaing();
  void delayedBlockForPlay();
  void repeatCheckPlaing();
  void failDuringPlaying(bool cacheVideo);
  void itemDidFinishPlaying();
  void playerItemFailedToPlayToEndTime();
  void observeStatus(media::MediaItemStatus status);
  Rect safeAreaRect() const;
  double maxSafeAreaSize() const;
  void layoutControls();
  void animateConstraint(const std::shared_ptr<View>& control, double& constraint, double target);
  void removeControlAnimations();
  std::weak_ptr<ZVVideoView> weakSelf();
  std::shared_ptr<Presenter> presenter() const;
  std::shared_ptr<ZVVideoViewDelegate> delegate() const { return delegate_.lock(); }

  Environment environment_;
  float duration_ = 0;
  std::shared_ptr<Button> closeButton_;  // never created: the skip control closes
  std::shared_ptr<Button> soundButton_;
  std::weak_ptr<ZVPlayerView> playerView_;
  std::shared_ptr<ZVPlayerView> playerViewCache_;
  std::shared_ptr<media::MediaPlayer> playVideo_;
  std::shared_ptr<media::MediaItem> playerItem_;
  std::string fileName_;
  bool alreadyReceiveErrorPlay_ = false;
  bool continuePlayAfterError_ = false;
  media::MediaTime failTimePause_ = media::MediaTime::zero();
  media::MediaTime playTime_ = media::MediaTime::zero();
  media::MediaTime repeatPlayTime_ = media::MediaTime::zero();
  std::optional<dispatch::TaskHandle> delayBlockForPlay_;
  std::optional<dispatch::TaskHandle> delayBlockForRepeatPlay_;
  std::optional<dispatch::TaskHandle> timerUpdateUI_;
  std::optional<dispatch::TaskHandle> timerHideUI_;
  std::optional<dispatch::TaskHandle> timerAllowSkip_;
  std::shared_ptr<ZVTimerCircularProgress> timerProgress_;
  std::shared_ptr<ZVSkipButton> skipButton_;
  std::shared_ptr<Button> hiddenButton_;
  bool wasStartPlay_ = false;
  double skipTopConstraint_ = 0;
  double timerTopConstraint_ = 0;
  double soundBottomConstraint_ = 0;
  bool showButtons_ = false;
  bool hasAnimation_ = false;
  bool soundOn_ = true;
  std::weak_ptr<ZVVideoViewDelegate> delegate_;
  AppLifecycle::Token lifecycleObserver_ = 0;
};

}  // namespace zivora::ui
