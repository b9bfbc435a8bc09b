#include "ui/ZVVideoView.h"

#include <algorithm>
#include <chrono>

#include "platform/dispatch/QueueAssert.h"
#include "platform/dispatch/WeakTask.h"
#include "util/Guard.h"
#include "util/Upcalls.h"
#include "util/ZVLog.h"
#include "zivora/ZVConstants.h"

namespace zivora::ui {
namespace {

using media::MediaTime;
using namespace std::chrono_literals;

constexpr double kControlSide = 40;
constexpr double kPadding = TS_UI_PADDING;
constexpr double kFullScreenButtonAlpha = 0.05;
constexpr auto kControlAnimation = 400ms;
constexpr auto kUpdateInterval = 50ms;
constexpr auto kHideUIDelay = 3500ms;
constexpr auto kFirstStartCheck = 1500ms;
constexpr auto kSecondStartCheck = 500ms;
constexpr auto kDropCachedPlayerView = 1s;
// A player that moved less than this since play() did not start.
constexpr double kStartedSeconds = 0.1;

// Seconds from the protocol's single-precision values, rounded to whole
// microseconds so that 0.4f is 400 ms and not a few nanoseconds more.
dispatch::Duration seconds(double value) {
  return std::chrono::round<std::chrono::microseconds>(std::chrono::duration<double>(value));
}

void info(const char* method, const char* message) {
  upcalls::reporter().sendEvent(TSP_EVENT_NAME_INFO, "ZVVideoView", method, message);
}

void cancel(std::optional<dispatch::TaskHandle>& handle) {
  if (handle) handle->cancel();
  handle.reset();
}

}  // namespace

ZVVideoView::ZVVideoView(Environment environment)
    : View(lockPresenter(environment.presenter)->screen().bounds()),
      environment_(std::move(environment)) {
  guarded("ZVVideoView", "setup", [&] { setup(); });
}

ZVVideoView::~ZVVideoView() {
  // The second start check is left to run: it holds the player, not the
  // view, and still reports a player that never started.
  for (auto* handle : {&delayBlockForPlay_, &timerUpdateUI_, &timerHideUI_, &timerAllowSkip_}) {
    cancel(*handle);
  }
  if (lifecycleObserver_) environment_.lifecycle->removeObserver(lifecycleObserver_);
}

std::shared_ptr<Presenter> ZVVideoView::presenter() const {
  return lockPresenter(environment_.presenter);
}

std::weak_ptr<ZVVideoView> ZVVideoView::weakSelf() {
  return std::static_pointer_cast<ZVVideoView>(shared_from_this());
}

// --- Construction and layout ------------------------------------------------

void ZVVideoView::setup() {
  soundOn_ = true;
  setBackgroundColor(Color::black());
  addVideoView();
  addHiddenButton();
  addTimeProgress();
  addSkipProgress();
  addSoundButton();
  layoutControls();
}

void ZVVideoView::addVideoView() {
  auto view = std::make_shared<ZVPlayerView>(bounds());
  addSubview(view);
  playerView_ = view;
}

void ZVVideoView::addHiddenButton() {
  hiddenButton_ = std::make_shared<Button>(bounds());
  // Clear, with an alpha just above the hit-testing threshold: it takes
  // taps and paints nothing over the picture.
  hiddenButton_->setAlpha(kFullScreenButtonAlpha);
  hiddenButton_->setAction([this] { swithUIHandler(); });
  addSubview(hiddenButton_);
}

void ZVVideoView::addTimeProgress() {
  timerProgress_ =
      std::make_shared<ZVTimerCircularProgress>(Rect{{0, 0}, {kControlSide, kControlSide}});
  timerTopConstraint_ = -kControlSide - maxSafeAreaSize();
  addSubview(timerProgress_);
}

void ZVVideoView::addSkipProgress() {
  skipButton_ = std::make_shared<ZVSkipButton>(Rect{{0, 0}, {kControlSide, kControlSide}});
  skipTopConstraint_ = -kControlSide - maxSafeAreaSize();
  skipButton_->setAction([this] { skipVideoHandler(); });
  addSubview(skipButton_);
}

void ZVVideoView::addSoundButton() {
  soundButton_ = std::make_shared<Button>(Rect{{0, 0}, {kControlSide, kControlSide}});
  soundBottomConstraint_ = kControlSide + maxSafeAreaSize();
  soundButton_->setAction([this] { soundSwitchHandler(); });
  addSubview(soundButton_);
  validateSoundButton();
}

Rect ZVVideoView::safeAreaRect() const {
  return guarded("ZVVideoView", "safeAreaRect", Rect{},
                 [&] { return presenter()->screen().safeAreaRect(); });
}

double ZVVideoView::maxSafeAreaSize() const {
  return guarded("ZVVideoView", "maxSafeAreaSize", 0.0, [&] {
    const Rect safe = safeAreaRect();
    return std::max(safe.minX(), safe.minY());
  });
}

void ZVVideoView::layoutSubviews() {
  for (auto& view : {std::static_pointer_cast<View>(playerViewCache_),
                     std::static_pointer_cast<View>(playerView_.lock()),
                     std::static_pointer_cast<View>(hiddenButton_)}) {
    if (view) view->setFrame(bounds());
  }
  layoutControls();
}

void ZVVideoView::layoutControls() {
  const Rect guide = safeAreaRect();
  const Size side{kControlSide, kControlSide};
  if (timerProgress_) {
    timerProgress_->setFrame(
        {{guide.maxX() - kPadding - kControlSide, guide.minY() + timerTopConstraint_}, side});
  }
  if (skipButton_) {
    skipButton_->setFrame({{guide.minX() + kPadding, guide.minY() + skipTopConstraint_}, side});
  }
  if (soundButton_) {
    soundButton_->setFrame(
        {{guide.minX() + kPadding, guide.maxY() + soundBottomConstraint_ - kControlSide}, side});
  }
}

// --- Sound ---------------------------------------------------------------------

void ZVVideoView::soundEnable(bool enable) {
  ZV_ASSERT_ON(environment_.mainQueue);
  guarded("ZVVideoView", "soundEnable", [&] {
    soundOn_ = enable;
    if (playVideo_) playVideo_->setMuted(!enable);
    validateSoundButton();
  });
}

void ZVVideoView::validateSoundButton() {
  guarded("ZVVideoView", "validateSoundButton", [&] {
    const auto& url = soundOn_ ? environment_.soundOnButtonURL : environment_.soundOffButtonURL;
    if (url && environment_.pathForURL) soundButton_->setImageFile(environment_.pathForURL(*url));
  });
}

void ZVVideoView::soundSwitchHandler() {
  ZV_ASSERT_ON(environment_.mainQueue);
  guarded("ZVVideoView", "soundSwitchHandler", [&] {
    soundOn_ = !soundOn_;
    soundEnable(soundOn_);
    shiftDelayHideUI();
  });
}

// --- Items and observers ---------------------------------------------------------

void ZVVideoView::allowSkipAfer(float seconds) {
  ZV_ASSERT_ON(environment_.mainQueue);
  guarded("ZVVideoView", "allowSkipAfer", [&] {
    if (skipButton_) skipButton_->setDuration(seconds);
  });
}

void ZVVideoView::prepareItem(const std::string& fileName, MediaTime time) {
  ZV_ASSERT_ON(environment_.mainQueue);
  guarded("ZVVideoView", "prepareItem", [&] {
    fileName_ = fileName;
    if (playerItem_) unregistObservers(playerItem_);
    auto asset = environment_.assetForFile ? environment_.assetForFile(fileName)
                                           : media::MediaAsset::fromFile(fileName);
    playerItem_ = environment_.media->makeItem(asset);
    playerItem_->seekTo(time);
    registObservers(playerItem_);
    playVideo_ = environment_.media->makePlayer(playerItem_);
  });
}

void ZVVideoView::registObservers(const std::shared_ptr<media::MediaItem>& item) {
  if (!item) return;
  std::weak_ptr<ZVVideoView> view = weakSelf();
  auto forward = [view](void (ZVVideoView::*handler)()) {
    return [view, handler] {
      if (auto self = view.lock()) (self.get()->*handler)();
    };
  };
  item->setObserver(media::MediaItemObserver{
      .statusChanged =
          [view](media::MediaItemStatus status) {
            if (auto self = view.lock()) self->observeStatus(status);
          },
      .playedToEnd = forward(&ZVVideoView::itemDidFinishPlaying),
      .failedToPlayToEnd = forward(&ZVVideoView::playerItemFailedToPlayToEndTime),
      // A stall is treated exactly as a failure.
      .playbackStalled = forward(&ZVVideoView::playerItemFailedToPlayToEndTime),
  });
  if (!lifecycleObserver_) {
    std::weak_ptr<ZVVideoView> weak = weakSelf();
    lifecycleObserver_ = environment_.lifecycle->addObserver([weak](AppLifecycle::Event event) {
      auto self = weak.lock();
      if (!self) return;
      if (event == AppLifecycle::Event::WillEnterForeground) {
        self->resumeApp();
      } else {
        self->pauseApp();
      }
    });
  }
}

void ZVVideoView::unregistObservers(const std::shared_ptr<media::MediaItem>& item) {
  if (!item) return;
  item->setObserver({});
  if (lifecycleObserver_) environment_.lifecycle->removeObserver(lifecycleObserver_);
  lifecycleObserver_ = 0;
}

void ZVVideoView::observeStatus(media::MediaItemStatus status) {
  guarded("ZVVideoView", "observeValueForKeyPath", [&] {
    const bool ready = status == media::MediaItemStatus::ReadyToPlay;
    if (continuePlayAfterError_) {
      continuePlayAfterError_ = false;
      // A resume whose new item fails is not reported.
      if (!ready) return;
      duration_ = static_cast<float>(playerItem_->duration().seconds());
      alreadyReceiveErrorPlay_ = false;
      auto fresh = std::make_shared<ZVPlayerView>(bounds());
      // The fresh view goes to the back, the cached one (the last frame)
      // behind it, until the new picture arrives.
      insertSubviewAtBack(fresh);
      if (playerViewCache_) insertSubviewAtBack(playerViewCache_);
      playerView_ = fresh;
      fresh->setPlayer(playVideo_);
      play();
      dispatch::afterWeak(*environment_.mainQueue, kDropCachedPlayerView, weakSelf(),
                          {"ZVVideoView", "dropCachedPlayerView"}, [](ZVVideoView& self) {
                            if (!self.playerViewCache_) return;
                            self.playerViewCache_->removeFromSuperview();
                            self.playerViewCache_.reset();
                          });
      return;
    }
    if (!ready) {
      if (auto d = delegate()) d->errorPlayVideoItem();
      info("observeValueForKeyPath", "Can't play video");
      return;
    }
    duration_ = static_cast<float>(playerItem_->duration().seconds());
    if (auto d = delegate()) d->preparedVideoView();
  });
}

bool ZVVideoView::isReady() {
  return guarded("ZVVideoView", "isReady", false, [&] {
    return playerItem_ && playerItem_->status() == media::MediaItemStatus::ReadyToPlay;
  });
}

bool ZVVideoView::isPlaying() {
  return guarded("ZVVideoView", "isPlaying", false, [&] {
    return playVideo_ && playVideo_->rate() != 0 && playVideo_->error().empty();
  });
}

float ZVVideoView::currentTime() const {
  return playVideo_ ? static_cast<float>(playVideo_->currentTime().seconds()) : 0.0f;
}

float ZVVideoView::remainingTime() const { return playVideo_ ? duration_ - currentTime() : 0.0f; }

// --- Showing and playing ----------------------------------------------------------

void ZVVideoView::show(const std::string& fileName) {
  ZV_ASSERT_ON(environment_.mainQueue);
  guarded("ZVVideoView", "show", [&] {
    fileName_ = fileName;
    if (!playerItem_ || !playVideo_) prepareItem(fileName, MediaTime::zero());
    if (auto view = playerView_.lock()) view->setPlayer(playVideo_);
    animateShow();
  });
}

void ZVVideoView::animateShow() {
  guarded("ZVVideoView", "animateShow", [&] {
    auto presenter = this->presenter();
    const Size screen = presenter->screen().size;
    layoutSubviews();
    setFrame({{0, 0}, screen});
    setTranslation({0, screen.height});
    std::weak_ptr<ZVVideoView> weak = weakSelf();
    presenter->animator().animate(
        shared_from_this(), seconds(TS_ANIMATION_VIDEO_SHOW_TIME),
        [weak, height = screen.height](double progress) {
          guarded("ZVVideoView", "animateShowAnimations", [&] {
            if (auto self = weak.lock()) self->setTranslation({0, height * (1 - progress)});
          });
        },
        [weak](bool) {
          guarded("ZVVideoView", "animateShowCompletion", [&] {
            auto self = weak.lock();
            if (!self) return;
            self->alreadyReceiveErrorPlay_ = false;
            self->play();
            if (auto d = self->delegate()) d->didShowView();
          });
        });
  });
}

void ZVVideoView::play() {
  guarded("ZVVideoView", "play", [&] {
    startAllowSkipTimer();
    if (!wasStartPlay_) showUI();
    wasStartPlay_ = true;
    if (!playVideo_) return;
    if (!soundOn_) playVideo_->setMuted(true);
    playVideo_->play();
    startCheckPlaing();
    startUpdateTimer();
  });
}

void ZVVideoView::pauseApp() {
  guarded("ZVVideoView", "pauseApp", [&] {
    if (!wasStartPlay_) return;
    stopAllowSkipTimer();
    if (playVideo_) playVideo_->pause();
    stopUpdateTimer();
    ZVLog::LogDebug("[ZVVideoView][pauseApp] Paused at {:.3f} s", currentTime());
  });
}

void ZVVideoView::resumeApp() {
  guarded("ZVVideoView", "resumeApp", [&] {
    if (!wasStartPlay_) return;
    ZVLog::LogDebug("[ZVVideoView][resumeApp] Resumed at {:.3f} s", currentTime());
    play();
  });
}

// --- Countdown and late skip --------------------------------------------------------

void ZVVideoView::startUpdateTimer() {
  timerProgress_->setDuration(duration_);
  stopUpdateTimer();
  timerUpdateUI_ = dispatch::everyWeak(*environment_.mainQueue, kUpdateInterval, weakSelf(),
                                       {"ZVVideoView", "updateTimer"},
                                       [](ZVVideoView& self) { self.updateTimer(); });
}

void ZVVideoView::stopUpdateTimer() { cancel(timerUpdateUI_); }

void ZVVideoView::updateTimer() {
  guarded("ZVVideoView", "updateTimer", [&] {
    const float now = currentTime();
    timerProgress_->setCurrentTime(now);
    if (!skipButton_) return;
    const bool wasReady = skipButton_->isReady();
    skipButton_->setCurrentTime(now);
    if (!wasReady && skipButton_->isReady())
      ZVLog::LogDebug("[ZVVideoView][updateTimer] Skip allowed");
  });
}

void ZVVideoView::startAllowSkipTimer() {
  if (timerAllowSkip_) return;
  timerAllowSkip_ = dispatch::afterWeak(
      *environment_.mainQueue, seconds(remainingTime() + TS_ADDITION_TIME_FOR_SHOW_CLOSE_BUTTON),
      weakSelf(), {"ZVVideoView", "allowSkip"}, [](ZVVideoView& self) { self.allowSkip(); });
}

void ZVVideoView::stopAllowSkipTimer() {
  guarded("ZVVideoView", "stopAllowSkipTimer", [&] { cancel(timerAllowSkip_); });
}

void ZVVideoView::allowSkip() {
  guarded("ZVVideoView", "allowSkip", [&] {
    timerAllowSkip_.reset();
    if (!skipButton_->isHidden()) return;
    skipButton_->setDuration(1);
    skipButton_->setCurrentTime(2);
    if (showButtons_) return;
    removeControlAnimations();
    showUI();
  });
}

// --- Controls ----------------------------------------------------------------------

void ZVVideoView::animateConstraint(const std::shared_ptr<View>& control, double& constraint,
                                    double target) {
  const double from = constraint;
  double* field = &constraint;
  std::weak_ptr<ZVVideoView> weak = weakSelf();
  presenter()->animator().animate(
      control, std::chrono::duration_cast<dispatch::Duration>(kControlAnimation),
      [weak, field, from, target](double progress) {
        auto self = weak.lock();
        if (!self) return;
        *field = from + (target - from) * progress;
        self->layoutControls();
      },
      [weak](bool) {
        if (auto self = weak.lock()) self->hasAnimation_ = false;
      });
}

void ZVVideoView::removeControlAnimations() {
  auto presenter = this->presenter();
  auto& animator = presenter->animator();
  for (const View* control :
       {static_cast<const View*>(skipButton_.get()), static_cast<const View*>(timerProgress_.get()),
        static_cast<const View*>(soundButton_.get())}) {
    animator.removeAnimations(*control);
  }
  hasAnimation_ = false;
}

void ZVVideoView::showUI() {
  guarded("ZVVideoView", "showUI", [&] {
    if (hasAnimation_) return;
    hasAnimation_ = true;
    shiftDelayHideUI();
    animateConstraint(skipButton_, skipTopConstraint_, kPadding);
    animateConstraint(timerProgress_, timerTopConstraint_, kPadding);
    animateConstraint(soundButton_, soundBottomConstraint_, -kPadding);
    showButtons_ = true;
  });
}

void ZVVideoView::hideUI() {
  guarded("ZVVideoView", "hideUI", [&] {
    if (hasAnimation_) return;
    cancel(timerHideUI_);
    hasAnimation_ = true;
    removeControlAnimations();
    hasAnimation_ = true;
    const double inset = maxSafeAreaSize();
    animateConstraint(skipButton_, skipTopConstraint_, -inset - skipButton_->frame().height());
    animateConstraint(timerProgress_, timerTopConstraint_,
                      -inset - timerProgress_->frame().height());
    animateConstraint(soundButton_, soundBottomConstraint_, inset + soundButton_->frame().height());
    showButtons_ = false;
  });
}

void ZVVideoView::shiftDelayHideUI() {
  cancel(timerHideUI_);
  timerHideUI_ = dispatch::afterWeak(*environment_.mainQueue, kHideUIDelay, weakSelf(),
                                     {"ZVVideoView", "hideUIDelay"}, [](ZVVideoView& self) {
                                       self.timerHideUI_.reset();
                                       self.hideUI();
                                     });
}

void ZVVideoView::swithUIHandler() {
  ZV_ASSERT_ON(environment_.mainQueue);
  guarded("ZVVideoView", "swithUIHandler", [&] {
    if (showButtons_) {
      hideUI();
    } else {
      showUI();
    }
  });
}

void ZVVideoView::skipVideoHandler() {
  ZV_ASSERT_ON(environment_.mainQueue);
  guarded("ZVVideoView", "skipVideoHandler", [&] {
    shiftDelayHideUI();
    if (!skipButton_->isReady()) return;
    if (auto d = delegate()) d->tapCloseView();
  });
}

void ZVVideoView::closeHandler() {
  ZV_ASSERT_ON(environment_.mainQueue);
  guarded("ZVVideoView", "closeHandler", [&] { info("closeHandler", "Close video by button."); });
}

void ZVVideoView::showCloseButton() {
  ZV_ASSERT_ON(environment_.mainQueue);
  guarded("ZVVideoView", "showCloseButton", [&] {
    if (closeButton_) closeButton_->setHidden(false);
  });
}

// --- Start watchdog and failures ---------------------------------------------------

void ZVVideoView::startCheckPlaing() {
  playTime_ = playVideo_->currentTime();
  cancel(delayBlockForPlay_);
  delayBlockForPlay_ = dispatch::afterWeak(*environment_.mainQueue, kFirstStartCheck, weakSelf(),
                                           {"ZVVideoView", "delayedBlockForPlay"},
                                           [](ZVVideoView& self) { self.delayedBlockForPlay(); });
}

void ZVVideoView::delayedBlockForPlay() {
  guarded("ZVVideoView", "delayedBlockForPlay", [&] {
    if (!playVideo_ || (playVideo_->currentTime() - playTime_).seconds() >= kStartedSeconds) {
      return;
    }
    ZVLog::LogDebug("[ZVVideoView][Play] Need invoke Play again.");
    info("startCheckPlaing", "Fail start play, repeat invoke play.");
    playVideo_->play();
    repeatCheckPlaing();
  });
}

void ZVVideoView::repeatCheckPlaing() {
  repeatPlayTime_ = playVideo_->currentTime();
  std::weak_ptr<ZVVideoView> weak = weakSelf();
  // The check reports a player that did not start even when the view has
  // gone meanwhile; only the failure call needs the view.
  delayBlockForRepeatPlay_ = environment_.mainQueue->after(
      kSecondStartCheck, [weak, player = playVideo_, since = repeatPlayTime_] {
        guarded("ZVVideoView", "repeatCheckPlaing", [&] {
          if (!player || (player->currentTime() - since).seconds() >= kStartedSeconds) return;
          ZVLog::LogDebug("[ZVVideoView][Play] Fail start play, need restart.");
          info("repeatCheckPlaing", "Fail start play, need restart.");
          if (auto self = weak.lock()) self->failDuringPlaying(false);
        });
      });
}

void ZVVideoView::failDuringPlaying(bool cacheVideo) {
  guarded("ZVVideoView", "failDuringPlaying", [&] {
    if (alreadyReceiveErrorPlay_) return;
    alreadyReceiveErrorPlay_ = true;
    if (playVideo_) playVideo_->pause();
    failTimePause_ = playVideo_ ? playVideo_->currentTime() : MediaTime::zero();
    if (auto d = delegate()) d->failDuringPlayVideo(failTimePause_, cacheVideo);
  });
}

void ZVVideoView::playerItemFailedToPlayToEndTime() {
  guarded("ZVVideoView", "playerItemFailedToPlayToEndTime", [&] {
    cancel(delayBlockForPlay_);
    cancel(delayBlockForRepeatPlay_);
    info("playerItemFailedToPlayToEndTime", "Error while playing");
    failDuringPlaying(true);
  });
}

void ZVVideoView::continuePlayingAfterError() {
  ZV_ASSERT_ON(environment_.mainQueue);
  guarded("ZVVideoView", "continuePlayingAfterError", [&] {
    continuePlayAfterError_ = true;
    if (playerViewCache_) {
      playerViewCache_->removeFromSuperview();
      playerViewCache_.reset();
    }
    playerViewCache_ = playerView_.lock();
    prepareItem(fileName_, failTimePause_);
  });
}

void ZVVideoView::itemDidFinishPlaying() {
  guarded("ZVVideoView", "itemDidFinishPlaying", [&] {
    stopUpdateTimer();
    unregistObservers(playerItem_);
    if (auto d = delegate()) d->finishedPlaying();
  });
}

// --- Leaving ------------------------------------------------------------------------

void ZVVideoView::hide() {
  ZV_ASSERT_ON(environment_.mainQueue);
  guarded("ZVVideoView", "hide", [&] {
    if (playVideo_) playVideo_->pause();
    animateHide();
  });
}

void ZVVideoView::animateHide() {
  guarded("ZVVideoView", "animateHide", [&] {
    auto presenter = this->presenter();
    const Size screen = presenter->screen().size;
    setFrame({{0, 0}, screen});
    stopUpdateTimer();
    std::weak_ptr<ZVVideoView> weak = weakSelf();
    presenter->animator().animate(
        shared_from_this(), seconds(TS_ANIMATION_VIDEO_HIDE_TIME),
        [weak, height = screen.height](double progress) {
          guarded("ZVVideoView", "animateHideAnimations", [&] {
            if (auto self = weak.lock()) self->setTranslation({0, height * progress});
          });
        },
        [weak](bool) {
          guarded("ZVVideoView", "animateHideCompletion", [&] {
            auto self = weak.lock();
            if (!self) return;
            if (auto d = self->delegate()) d->didHideView();
            cancel(self->delayBlockForPlay_);
          });
        });
  });
}

void ZVVideoView::stop() {
  ZV_ASSERT_ON(environment_.mainQueue);
  guarded("ZVVideoView", "stop", [&] {
    continuePlayAfterError_ = false;
    // The crossed pairing is deliberate: a pending second start check is
    // dropped from its field but still runs.
    if (delayBlockForRepeatPlay_) {
      if (delayBlockForPlay_) delayBlockForPlay_->cancel();
      delayBlockForRepeatPlay_.reset();
    }
    cancel(delayBlockForPlay_);
    unregistObservers(playerItem_);
    if (playVideo_) playVideo_->pause();
    if (playerItem_ && playerItem_->asset()) playerItem_->asset()->cancelLoading();
  });
}

}  // namespace zivora::ui
