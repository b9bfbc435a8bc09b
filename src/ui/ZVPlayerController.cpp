#include "ui/ZVPlayerController.h"

#include <chrono>
#include <filesystem>
#include <stdexcept>

#include "platform/dispatch/QueueAssert.h"
#include "platform/dispatch/Runtime.h"
#include "platform/dispatch/WeakTask.h"
#include "platform/media/MediaAsset.h"
#include "resources/ZVAssetLoaderDelegate.h"
#include "resources/ZVFileInfoStatus.h"
#include "resources/ZVResourceManager.h"
#include "sdk/Context.h"
#include "sdk/ZVConfiguration.h"
#include "ui/Display.h"
#include "util/Guard.h"
#include "zivora/ZVConstants.h"

namespace zivora::ui {
namespace {

constexpr char kClass[] = "ZVPlayerController";

std::shared_ptr<ZVResourceManager> resources() {
  auto manager = ZVResourceManager::defaultManager();
  if (!manager) throw std::logic_error("no resource manager");
  return manager;
}

std::shared_ptr<Context> context() {
  auto context = Context::current();
  if (!context) throw std::logic_error("no context");
  return context;
}

// The close button's delay, rounded to whole microseconds like the view's
// own timers.
dispatch::Duration closeButtonDelay(float duration) {
  return std::chrono::round<std::chrono::microseconds>(std::chrono::duration<double>(
      static_cast<double>(duration) + TS_ADDITION_TIME_FOR_SHOW_CLOSE_BUTTON));
}

}  // namespace

ZVPlayerController::ZVPlayerController() : bufferSize_(TS_DEFAULT_VIDEO_BUFFER_SIZE) {}

ZVPlayerController::~ZVPlayerController() = default;

void ZVPlayerController::setDelegate(std::weak_ptr<ZVPlayerControllerDelegate> delegate) {
  delegate_ = std::move(delegate);
}

std::shared_ptr<ZVVideoView> ZVPlayerController::view() const {
  std::lock_guard lock(mutex_);
  return videoView_;
}

std::string ZVPlayerController::videoFileName() const {
  std::lock_guard lock(mutex_);
  return videoFileName_;
}

void ZVPlayerController::setSoundEnable(bool soundEnable) { soundEnable_ = soundEnable; }

void ZVPlayerController::setAllowSkipAfter(float seconds) { allowSkipAfter_ = seconds; }

std::int32_t ZVPlayerController::bufferSize() const { return bufferSize_; }

// --- The view's surroundings -------------------------------------------------------

ZVVideoView::Environment ZVPlayerController::makeEnvironment() {
  auto current = context();
  auto display = Display::of(current);
  auto media = current->media();
  // Held weakly: the manager holds this controller as the video's download
  // listener, and the controller holds the view.
  std::weak_ptr<ZVResourceManager> weakManager = resources();
  auto configuration = ZVConfiguration::shared();
  // The runtime owns the main queue; the view keeps both.
  const auto& runtime = current->runtimeOptions().runtime;
  if (!runtime) throw std::logic_error("no runtime");
  return ZVVideoView::Environment{
      .presenter = display->sharedPresenter(),
      .media = media,
      .lifecycle = std::shared_ptr<AppLifecycle>(display, &display->lifecycle()),
      .mainQueue = std::shared_ptr<dispatch::Queue>(runtime, &runtime->mainQueue()),
      .assetForFile =
          [weakManager](const std::string& fileName) -> std::shared_ptr<media::MediaAsset> {
        auto manager = weakManager.lock();
        if (!manager) throw std::logic_error("no resource manager");
        const ZVAsset found = manager->assetForFile(fileName);
        auto asset = std::make_shared<media::MediaAsset>(found.url);
        // A file still downloading is read through its progressive loader,
        // which the resource manager keeps alive beside the download.
        if (auto loader =
                std::dynamic_pointer_cast<media::ResourceLoaderDelegate>(found.loaderDelegate)) {
          asset->setResourceLoaderDelegate(loader);
        }
        // The resource manager stops this asset when a newer one of the file
        // is asked for.
        if (auto own = std::dynamic_pointer_cast<ZVAssetLoaderDelegate>(found.loaderDelegate))
          own->setAsset(asset);
        return asset;
      },
      .pathForURL = [weakManager](const std::string& url) -> std::filesystem::path {
        auto manager = weakManager.lock();
        return manager ? manager->pathToFileFromURL(url) : std::string();
      },
      .soundOnButtonURL = configuration ? configuration->soundOnButtonURL() : std::nullopt,
      .soundOffButtonURL = configuration ? configuration->soundOffButtonURL() : std::nullopt,
  };
}

void ZVPlayerController::onMain(dispatch::Task task) {
  auto& main = context()->runtime().mainQueue();
  if (main.isCurrent()) {
    task();
  } else {
    main.async(std::move(task));
  }
}

std::shared_ptr<ZVVideoView> ZVPlayerController::makeView() {
  ZV_ASSERT_ON(context()->runtime().mainQueue());
  auto view = std::make_shared<ZVVideoView>(makeEnvironment());
  view->setDelegate(weak_from_this());
  std::lock_guard lock(mutex_);
  videoView_ = view;
  return view;
}

// --- Operations of the placement controller -----------------------------------

void ZVPlayerController::prepareFromURL(const std::string& url, const std::string& fileName) {
  guarded(kClass, "prepareFromURL", [&] {
    isFinishedPlaying_ = false;
    readyBeforeBuffer_ = false;
    {
      std::lock_guard lock(mutex_);
      videoFileName_ = fileName;
    }
    // The player's item comes with the first bytes: what it needs besides
    // them (the sound output) is looked for while they come.
    context()->media()->prepare();
    auto manager = resources();
    std::weak_ptr<ZVPlayerController> weak = weak_from_this();
    if (manager->isLoaded(fileName)) {
      onMain([weak, fileName] {
        guarded(kClass, "prepareFromURL1", [&] {
          if (auto self = weak.lock()) {
            self->makeView()->prepareItem(fileName, media::MediaTime::zero());
          }
        });
      });
      return;
    }
    onMain([weak] {
      guarded(kClass, "prepareFromURL2", [&] {
        if (auto self = weak.lock()) {
          self->makeView();
          self->needPrepareVideoView_ = true;
        }
      });
    });
    manager->loadURL(url, fileName, shared_from_this());
  });
}

bool ZVPlayerController::isPreparedFile() {
  return guarded(kClass, "isPreparedFile", false, [&] {
    const std::string fileName = videoFileName();
    if (fileName.empty()) return false;
    auto manager = resources();
    if (manager->isLoaded(fileName)) return true;
    auto info = manager->getLoadInfo(fileName);
    return info && info->loadedSize() > bufferSize_;
  });
}

bool ZVPlayerController::isPrepared() {
  return guarded(kClass, "isPrepared", false, [&] {
    auto videoView = view();
    return isPreparedFile() && videoView && videoView->isReady();
  });
}

void ZVPlayerController::play() {
  guarded(kClass, "play", [&] {
    auto videoView = view();
    if (!videoView) return;
    videoView->soundEnable(soundEnable_);
    videoView->allowSkipAfer(allowSkipAfter_);
    if (auto d = delegate()) d->videoWindowWillDisplay();
    videoView->show(videoFileName());
  });
}

void ZVPlayerController::stop() {
  guarded(kClass, "stop", [&] {
    failDuringPlaying_ = false;
    readyBeforeBuffer_ = false;
    resources()->cancelLoading(videoFileName());
    if (auto videoView = view()) videoView->stop();
  });
}

// --- The video's download ----------------------------------------------------------

void ZVPlayerController::startLoading(const std::string&) {
  guarded(kClass, "startLoading", [&] {
    auto info = resources()->getLoadInfo(videoFileName());
    if (info && info->fullSize() > 0) {
      bufferSize_ = static_cast<std::int32_t>(static_cast<float>(info->fullSize()) *
                                              TS_DEFAULT_VIDEO_BUFFER_PERCENT);
    }
  });
}

// Download notices are meant for the main queue; one that comes from
// elsewhere (a file that completed while it was being queued) is taken
// there, behind the task that makes the view.
void ZVPlayerController::receiveData(std::int64_t bytes) {
  guarded(kClass, "receiveData", [&] {
    auto& main = context()->runtime().mainQueue();
    if (!main.isCurrent()) {
      dispatch::asyncWeak(main, weak_from_this(), {kClass, "receiveDataDispatch"},
                          [bytes](ZVPlayerController& self) { self.receiveData(bytes); });
      return;
    }
    progress();
  });
}

void ZVPlayerController::finishLoading(const std::string& fileName) {
  guarded(kClass, "finishLoading", [&] {
    auto& main = context()->runtime().mainQueue();
    if (!main.isCurrent()) {
      dispatch::asyncWeak(main, weak_from_this(), {kClass, "finishLoadingDispatch"},
                          [fileName](ZVPlayerController& self) { self.finishLoading(fileName); });
      return;
    }
    progress();
    if (auto d = delegate()) d->finishLoadingFile();
  });
}

void ZVPlayerController::progress() {
  ZV_ASSERT_ON(context()->runtime().mainQueue());
  if (needPrepareVideoView_) {
    auto info = resources()->getLoadInfo(videoFileName());
    if (info && info->loadedSize() > 0) {
      needPrepareVideoView_ = false;
      if (auto videoView = view())
        videoView->prepareItem(videoFileName(), media::MediaTime::zero());
    }
  }
  if (readyBeforeBuffer_ && isPreparedFile()) notifyPreparedWhenBuffered();
  if (failDuringPlaying_) resumeIfBuffered();
}

void ZVPlayerController::resumeIfBuffered() {
  auto info = resources()->getLoadInfo(videoFileName());
  if (!info) return;
  if (info->isReady() || info->loadedSize() > loadedSizeOnFail_ + bufferSize_) {
    failDuringPlaying_ = false;
    if (auto videoView = view()) videoView->continuePlayingAfterError();
  }
}

// A transfer that fails before it starts (no free space) is reported on
// the download queue; the view is stopped on the main queue all the same.
void ZVPlayerController::errorLoadingResource(const std::string& fileName, std::int32_t error) {
  guarded(kClass, "errorLoadingResource", [&] {
    auto& main = context()->runtime().mainQueue();
    if (!main.isCurrent()) {
      dispatch::asyncWeak(main, weak_from_this(), {kClass, "errorLoadingResourceDispatch"},
                          [fileName, error](ZVPlayerController& self) {
                            self.errorLoadingResource(fileName, error);
                          });
      return;
    }
    if (resources()->isLoaded(fileName)) return;
    if (auto videoView = view()) videoView->stop();
    if (auto d = delegate()) d->errorPlayingVideo(0);
  });
}

// --- The video view's events ---------------------------------------------------------

void ZVPlayerController::preparedVideoView() {
  guarded(kClass, "preparedVideoView", [&] { notifyPreparedWhenBuffered(); });
}

void ZVPlayerController::notifyPreparedWhenBuffered() {
  readyBeforeBuffer_ = !isPreparedFile();
  if (readyBeforeBuffer_) return;
  if (auto d = delegate()) d->playerControllerPrepared();
}

void ZVPlayerController::tapCloseView() {
  guarded(kClass, "tapCloseView", [&] {
    if (auto d = delegate()) d->tapCloseView();
  });
}

void ZVPlayerController::didShowView() {
  guarded(kClass, "didShowView", [&] {
    if (auto d = delegate()) d->didShowView();
    auto videoView = view();
    if (!videoView) return;
    // The close button comes at the latest 5 s after the video's nominal
    // end, even when playback stalled on the way.
    dispatch::afterWeak(context()->runtime().mainQueue(),
                        closeButtonDelay(videoView->getDuration()),
                        std::weak_ptr<ZVVideoView>(videoView), {kClass, "didShowViewDispatch"},
                        [](ZVVideoView& shown) { shown.showCloseButton(); });
  });
}

void ZVPlayerController::didHideView() {
  guarded(kClass, "didHideView", [&] {
    if (auto d = delegate()) d->didHideView();
  });
}

void ZVPlayerController::finishedPlaying() {
  guarded(kClass, "finishedPlaying", [&] {
    if (isFinishedPlaying_.exchange(true)) return;
    if (auto d = delegate()) d->finishedPlaying();
  });
}

void ZVPlayerController::errorPlayVideoItem() {
  guarded(kClass, "errorPlayVideoItem", [&] {
    if (auto d = delegate()) d->errorPlayingVideo(1);
  });
}

void ZVPlayerController::failDuringPlayVideo(media::MediaTime, bool cacheVideo) {
  guarded(kClass, "failDuringPlayVideo", [&] {
    auto videoView = view();
    if (!cacheVideo) {
      if (videoView) videoView->continuePlayingAfterError();
      return;
    }
    failDuringPlaying_ = true;
    auto manager = resources();
    const std::string fileName = videoFileName();
    auto info = manager->getLoadInfo(fileName);
    const bool waiting = !(info && info->isReady()) && !manager->isLoaded(fileName);
    if (waiting) {
      // Resumed by the download once `bufferSize_` more bytes are there.
      loadedSizeOnFail_ = info ? info->loadedSize() : 0;
      return;
    }
    failDuringPlaying_ = false;
    if (videoView) videoView->continuePlayingAfterError();
  });
}

}  // namespace zivora::ui
