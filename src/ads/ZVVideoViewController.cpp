#include "ads/ZVVideoViewController.h"

#include "ads/ZVAdReply.h"
#include "ads/ZVRedirectRequest.h"
#include "analytics/ZVPAnalitics.h"
#include "events/ZVEventSender.h"
#include "events/ZVSendRequest.h"
#include "platform/ScreenSaver.h"
#include "platform/UrlOpener.h"
#include "platform/dispatch/QueueAssert.h"
#include "platform/dispatch/Runtime.h"
#include "platform/dispatch/WeakTask.h"
#include "resources/ZVArrayLoaderHelper.h"
#include "resources/ZVReserveManager.h"
#include "resources/ZVResourceManager.h"
#include "sdk/Context.h"
#include "sdk/ZVConfiguration.h"
#include "sdk/ZVReachability.h"
#include "ui/Display.h"
#include "ui/Window.h"
#include "ui/ZVPlayerController.h"
#include "ui/ZVPostVideoController.h"
#include "util/Guard.h"
#include "util/JsonConvert.h"
#include "util/WebAddress.h"
#include "util/ZVException.h"
#include "util/ZVLog.h"
#include "zivora/ZVConstants.h"
#include "zivora/ZivoraDelegate.h"

namespace zivora {
namespace {

constexpr char kClass[] = "ZVVideoViewController";
constexpr char kQueueLabel[] = "com.zivora.videoad";
constexpr int kServerFailure = 0;
constexpr int kResourceFailure = 1;
constexpr std::uint64_t kVideoAdType = 2;
constexpr std::uint64_t kNoSpaceError = 2;
constexpr std::uint64_t kLoadFailedError = 3;

Context& context() {
  auto* context = Context::current().get();
  if (!context) throw ZVException("Context", "No installed context");
  return *context;
}

dispatch::Runtime& runtime() { return context().runtime(); }

std::shared_ptr<ui::Display> display() { return ui::Display::of(Context::current()); }

std::filesystem::path pathForURL(const std::string& url) {
  auto manager = ZVResourceManager::defaultManager();
  return manager ? std::filesystem::path(manager->pathToFileFromURL(url)) : std::filesystem::path();
}

std::string fileNameOf(const std::string& url) {
  return ZVResourceManager::convertURLToFileName(url);
}

}  // namespace

std::shared_ptr<ZVVideoViewController> ZVVideoViewController::create(
    std::shared_ptr<ZivoraDelegate> delegate) {
  return std::shared_ptr<ZVVideoViewController>(new ZVVideoViewController(std::move(delegate)));
}

ZVVideoViewController::ZVVideoViewController(std::shared_ptr<ZivoraDelegate> delegate)
    : serialQueue_(runtime().makeSerialQueue(kQueueLabel)),
      playerController_(std::make_shared<ui::ZVPlayerController>()),
      host_(std::move(delegate)) {
  sentWatchedAd_ = false;
}

ZVVideoViewController::~ZVVideoViewController() {
  delayRequestBlock_.cancel();
  timeBudget_.cancel();
}

void ZVVideoViewController::setDelegate(std::weak_ptr<ZVVideoControllerDelegate> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

template <class Body>
void ZVVideoViewController::onSerial(const char* method, Body body) {
  serialQueue_->async([self = shared_from_this(), method, body = std::move(body)]() mutable {
    guarded(kClass, method, [&] { body(*self); });
  });
}

template <class Body>
void ZVVideoViewController::onMain(const char* method, Body body) {
  runtime().mainQueue().async(
      [self = shared_from_this(), method, body = std::move(body)]() mutable {
        guarded(kClass, method, [&] { body(*self); });
      });
}

template <class Body>
void ZVVideoViewController::loadStep(const char* method, int kind, Body body) {
  try {
    body();
  } catch (...) {
    detail::reportCaught(kClass, method, GuardReport::Analytics);
    // Once the request has its answer (cached, or on screen), a late
    // failure is only reported: a retry could answer it a second time.
    if (!invokedCache_ && !showing_) repeateRequestAfterError(kind);
  }
}

template <class Call>
void ZVVideoViewController::tellHost(Call call) {
  runtime().mainQueue().async([host = host_, placement = placementName_, call = std::move(call)] {
    call(*host, placement);
  });
}

std::optional<nlohmann::json> ZVVideoViewController::jsonAd() const {
  std::lock_guard lock(mutex_);
  return jsonAd_;
}

// --- Host requests -------------------------------------------------------------

void ZVVideoViewController::cache() {
  guarded(kClass, "cache", [&] {
    onSerial("cache", [](ZVVideoViewController& self) {
      if (self.ready_) {
        ZVLog::LogDebug(
            "[ZVVideoViewController][cache] Warning: Invoke cache, when video is ready.");
      } else if (self.loading_) {
        ZVLog::LogDebug(
            "[ZVVideoViewController][cache] Warning: Invoke cache twice, video now loading...");
      } else if (self.showing_) {
        ZVLog::LogDebug(
            "[ZVVideoViewController][cache] Warning: Invoke cache, during video showing.");
      } else {
        self.startTimeBudget();
        self.requestAd();
      }
    });
  });
}

void ZVVideoViewController::show() {
  guarded(kClass, "show", [&] {
    onSerial("show", [](ZVVideoViewController& self) {
      if (self.showing_) {
        ZVLog::LogDebug(
            "[ZVVideoViewController][show] Warning: Invoke show, during video showing.");
        return;
      }
      self.showAfterCached_ = true;
      self.invokedShow_ = true;
      if (self.ready_) {
        self.showReadyVideo();
      } else {
        self.startTimeBudget();
        self.requestAd();
      }
    });
  });
}

// --- Ad request -------------------------------------------------------------------

void ZVVideoViewController::requestAd() {
  ZV_ASSERT_ON(serialQueue_);
  try {
    if (retired_) return;
    if (loading_) {
      ZVLog::LogDebug("[ZVVideoViewController][requestAd] Cancel, loading...");
      return;
    }
    loading_ = true;
    delayRequestBlock_.cancel();
    delayRequestBlock_ = {};
    ZVLog::LogDebug("Request Video Ad");
    auto configuration = ZVConfiguration::shared();
    nlohmann::json fields = nlohmann::json::object();
    if (configuration) {
      if (auto uid = configuration->randomUID()) fields[TS_API_RANDOM_UID] = *uid;
      if (auto appId = configuration->appId()) fields[TS_API_APP_ID] = *appId;
    }
    fields[TS_API_PLACEMENT_NAME] = placementName_;
    fields[TS_API_ORIENTATION] = deviceOrientation();
    fields[TS_API_IS_MOBILE_NETWORK] = isMobileNetwork();
    std::string body;
    try {
      body = JsonConvert::serialize({{TS_API_GET_VIDEO, fields}});
    } catch (...) {
      ZVPAnalitics::shared().sendEvent(TSP_EVENT_NAME_ERROR, kClass, "requestAd",
                                       "Can't create JSON for request video");
      ZVLog::LogWarning("Error! Can't create JSON for request video");
      repeateRequestAfterError(kServerFailure);
      return;
    }
    // The exchange blocks, so it runs on the global queue; the answer comes
    // back to the serial queue like every other state change.
    runtime().globalQueue().async([self = shared_from_this(), body = std::move(body)] {
      ZVSendRequest::sendPost(body, [&](const nlohmann::json* reply, int code) {
        std::optional<nlohmann::json> copy;
        if (reply) copy = *reply;
        self->serialQueue_->async([self, copy = std::move(copy), code] {
          self->receiveAdResponse(copy ? &*copy : nullptr, code);
        });
      });
    });
  } catch (...) {
    detail::reportCaught(kClass, "requestAd", GuardReport::Analytics);
    repeateRequestAfterError(kServerFailure);
  }
}

void ZVVideoViewController::receiveAdResponse(const nlohmann::json* reply, int code) {
  try {
    if (code != TS_HTTP_ERROR && reply) {
      loadAdResource(reply);
      return;
    }
    ZVLog::LogDebug("[ZVVideoViewController][requestAd] Error request video, error = {}", code);
    repeateRequestAfterError(kServerFailure);
  } catch (...) {
    detail::reportCaught(kClass, "requestAd", GuardReport::Analytics);
    repeateRequestAfterError(kServerFailure);
  }
}

std::int32_t ZVVideoViewController::deviceOrientation() {
  return guarded(kClass, "deviceOrientation", TS_ORIENTATION_PORTRAIT, [&] {
    auto screen = display();
    // The answer must not wait for the main queue (a host-pumped host may
    // not pump yet): read the last known shape and have it refreshed.
    runtime().mainQueue().async(
        [screen] { guarded(kClass, "deviceOrientation", [&] { screen->refreshOrientation(); }); });
    return screen->deviceOrientation();
  });
}

bool ZVVideoViewController::isMobileNetwork() {
  return guarded(kClass, "isMobileNetwork", false, [&] {
    auto reachability = ZVReachability::reachabilityForInternetConnection();
    if (!reachability) return false;
    reachability->startNotifier(serialQueue_);
    const bool cellular =
        reachability->currentReachabilityStatus() == ZVReachability::ReachableViaWWAN;
    reachability->stopNotifier();
    return cellular;
  });
}

void ZVVideoViewController::parseResponse(const std::optional<std::string>& data) {
  guarded(kClass, "parseResponse", [&] {
    if (!data) {
      ZVLog::LogWarning("[ZVVideoViewController][parseResponse] Error! Response data equals nil.");
      repeateRequestAfterError(kServerFailure);
      return;
    }
    nlohmann::json ad;
    try {
      ad = nlohmann::json::parse(*data);
    } catch (const std::exception& error) {
      ZVLog::LogWarning("[ZVVideoViewController][parseResponse] Error = {}.", error.what());
      repeateRequestAfterError(kServerFailure);
      return;
    }
    if (isValid(ad))
      loadAdResource(&ad);
    else
      repeateRequestAfterError(kServerFailure);
  });
}

bool ZVVideoViewController::isValid(const nlohmann::json& ad) const {
  return ZVAdReply::isValid(ad);
}

// --- Reading the ad ---------------------------------------------------------------

void ZVVideoViewController::loadAdResource(const nlohmann::json* ad) {
  // A reply that cannot be read (a null "error", a field of a kind it
  // cannot have) is a failed request, not the end of the placement.
  loadStep("loadAdResource", kServerFailure, [&] {
    if (!ad) {
      ZVLog::LogWarning("[ZVVideoViewController][loadAdResource] Error! Json Ad can't equals nil.");
      ZVPAnalitics::shared().sendEvent(TSP_EVENT_NAME_INFO, kClass, "loadAdResource",
                                       "Error! Json Ad can't equals nil.");
      repeateRequestAfterError(kServerFailure);
      return;
    }
    {
      std::lock_guard lock(mutex_);
      jsonAd_ = *ad;
    }
    if (auto refused = ZVAdReply::error(*ad)) {
      loading_ = ready_ = showing_ = showAfterCached_ = invokedShow_ = false;
      fail(*refused);
      return;
    }
    reserveAllResources(*ad);
    const float skipAfter = ZVAdReply::skipAfter(*ad);
    playerController_->setSoundEnable(ZVAdReply::soundEnable(*ad));
    playerController_->setAllowSkipAfter(skipAfter);

    auto helper = std::make_shared<ZVArrayLoaderHelper>();
    helper->setDelegate(shared_from_this());
    {
      std::lock_guard lock(mutex_);
      loaderHelper_ = helper;
    }
    // A picture address that is not text, or not a web address, counts as
    // missing.
    auto image = WebAddress::accepted(ZVAdReply::imageURL(*ad), "image");
    if (!image) {
      ZVLog::LogWarning(
          "[ZVVideoViewController][loadAdResource] Error! post image url equals nil.");
      repeateRequestAfterError(kServerFailure);
      return;
    }
    helper->addNewForLoad(image, false);
    if (auto icon = WebAddress::accepted(ZVAdReply::currencyIconURL(*ad), "currency icon"))
      helper->addNewForLoad(icon, false);
    auto configuration = ZVConfiguration::shared();
    if (configuration) {
      helper->addNewForLoad(WebAddress::accepted(configuration->closeButtonURL(), "close button"),
                            false);
      helper->addNewForLoad(
          WebAddress::accepted(configuration->soundOnButtonURL(), "sound-on button"), false);
      helper->addNewForLoad(
          WebAddress::accepted(configuration->soundOffButtonURL(), "sound-off button"), false);
    }
    helper->startLoad();
  });
}

// Throws on failure: the ad load's step that calls it retries.
void ZVVideoViewController::reserveAllResources(const nlohmann::json& ad) {
  bool hadReservations = false;
  {
    std::lock_guard lock(mutex_);
    hadReservations = reservedNames_.has_value();
  }
  if (hadReservations) unreserveAllResources();
  std::vector<std::optional<std::string>> urls{ZVAdReply::imageURL(ad),
                                               ZVAdReply::currencyIconURL(ad)};
  if (auto configuration = ZVConfiguration::shared()) {
    urls.push_back(configuration->closeButtonURL());
    urls.push_back(configuration->soundOnButtonURL());
    urls.push_back(configuration->soundOffButtonURL());
  }
  urls.push_back(ZVAdReply::videoURL(ad));
  std::vector<std::string> names;
  for (const auto& url : urls) {
    if (url) names.push_back(fileNameOf(*url));
  }
  auto reserve = ZVReserveManager::defaultManager();
  for (const auto& name : names) {
    if (!name.empty() && reserve) reserve->reserve(name);
  }
  std::lock_guard lock(mutex_);
  reservedNames_ = std::move(names);
}

void ZVVideoViewController::unreserveAllResources() {
  guarded(kClass, "unreserveAllResources", [&] {
    std::optional<std::vector<std::string>> names;
    {
      std::lock_guard lock(mutex_);
      names.swap(reservedNames_);
    }
    if (!names) return;
    auto reserve = ZVReserveManager::defaultManager();
    auto resources = ZVResourceManager::defaultManager();
    for (const auto& name : *names) {
      if (name.empty()) continue;
      if (reserve) reserve->unreserve(name);
      if (resources) resources->removeLink(name);
    }
  });
}

// --- Preparing the video ----------------------------------------------------------

void ZVVideoViewController::finishLoadingResources(const std::vector<ZVDownloadFileInfo>&) {
  loadStep("finishLoadingResources", kResourceFailure, [&] {
    auto ad = jsonAd();
    if (!ad) throw ZVException(kClass, "Images loaded without an ad");
    loadVideoFile(*ad);
  });
}

void ZVVideoViewController::errorLoadingResourcesByHelper(std::int32_t error) {
  loadStep("errorLoadingResourcesByHelper", kResourceFailure, [&] {
    if (static_cast<std::uint64_t>(error) == kNoSpaceError) {
      invokedShow_ = false;
      fail(kNoSpaceError);
    } else {
      repeateRequestAfterError(kResourceFailure);
    }
  });
}

void ZVVideoViewController::loadVideoFile(const nlohmann::json& ad) {
  loadStep("loadVideoFile", kServerFailure, [&] {
    auto video = WebAddress::accepted(ZVAdReply::videoURL(ad), "video");
    if (!video) {
      repeateRequestAfterError(kServerFailure);
      return;
    }
    playerController_->setDelegate(weak_from_this());
    playerController_->prepareFromURL(*video, fileNameOf(*video));
  });
}

bool ZVVideoViewController::isReadyAllResources() {
  return guarded(kClass, "isReadyAllResources", false, [&] {
    std::shared_ptr<ZVArrayLoaderHelper> helper;
    {
      std::lock_guard lock(mutex_);
      helper = loaderHelper_;
    }
    const bool allReady = helper && helper->isLoaded() && playerController_->isPrepared();
    if (allReady) loading_ = false;
    return allReady;
  });
}

bool ZVVideoViewController::isDownloadedVideo() {
  return guarded(kClass, "isDownloadedVideo", false, [&] {
    auto ad = jsonAd();
    auto video = ad ? ZVAdReply::videoURL(*ad) : std::nullopt;
    auto manager = ZVResourceManager::defaultManager();
    return video && manager && manager->isLoaded(fileNameOf(*video));
  });
}

void ZVVideoViewController::playerControllerPrepared() {
  loadStep("playerControllerPrepared", kResourceFailure, [&] {
    if (isReadyAllResources()) {
      ready_ = true;
      if (!invokedCache_ && isDownloadedVideo() && !showAfterCached_ && !invokedShow_)
        notifyCached();
    }
    if (isReadyAllResources() && showAfterCached_) showWindow();
  });
}

void ZVVideoViewController::finishLoadingFile() {
  loadStep("finishLoadingFile", kResourceFailure, [&] {
    if (ready_ && !invokedCache_ && isDownloadedVideo() && !showAfterCached_) notifyCached();
  });
}

void ZVVideoViewController::notifyCached() {
  if (retired_) return;
  invokedCache_ = true;
  stopTimeBudget();
  tellHost(
      [](ZivoraDelegate& host, const std::string& placement) { host.videoDidCache(placement); });
}

void ZVVideoViewController::errorPlayingVideo(std::int32_t error) {
  guarded(kClass, "errorPlayingVideo", [&] {
    ZVLog::system(fmt::format("Error PlayingVideo: {}", error));
    if (showing_)
      showPostVideoView();
    else
      repeateRequestAfterError(kResourceFailure);
  });
}

// --- Retry ------------------------------------------------------------------------

void ZVVideoViewController::repeateRequestAfterError(int kind) {
  guarded(kClass, "repeateRequestAfterError", [&] {
    onSerial("repeateRequestAfterError", [kind](ZVVideoViewController& self) {
      if (self.retired_) return;
      if (self.showing_) {
        // While the ad is on screen the controller never gives up.
        self.showAfterCached_ = false;
      } else if (self.countRequestToCDN_ >= 1 || self.countRequestToServer_ >= 1) {
        self.invokedShow_ = false;
        self.showAfterCached_ = false;
        self.fail(kLoadFailedError);
        return;
      }
      if (kind == kResourceFailure)
        ++self.countRequestToCDN_;
      else
        ++self.countRequestToServer_;
      self.loading_ = self.ready_ = self.showing_ = false;
      const auto delay = context().runtimeOptions().retryTimeUnit * TS_AD_REPEAT_REQUEST;
      self.delayRequestBlock_ = dispatch::afterWeak(
          *self.serialQueue_, std::chrono::duration_cast<dispatch::Duration>(delay),
          self.weak_from_this(), {kClass, "requestAd"},
          [](ZVVideoViewController& controller) { controller.requestAd(); });
    });
  });
}

void ZVVideoViewController::fail(std::uint64_t error) {
  if (retired_.exchange(true)) return;
  stopTimeBudget();
  std::shared_ptr<ZVVideoControllerDelegate> delegate;
  {
    std::lock_guard lock(mutex_);
    delegate = delegate_.lock();
  }
  if (delegate) delegate->didError(error, shared_from_this());
}

// --- Time budget ------------------------------------------------------------------

void ZVVideoViewController::startTimeBudget() {
  const int seconds = context().host().requestTimeBudgetSeconds;
  if (seconds <= 0) return;
  std::lock_guard lock(mutex_);
  if (timeBudget_.valid() && !timeBudget_.isCancelled()) return;
  timeBudget_ = dispatch::afterWeak(
      *serialQueue_, std::chrono::seconds(seconds), weak_from_this(), {kClass, "timeBudgetSpent"},
      [](ZVVideoViewController& controller) { controller.timeBudgetSpent(); });
}

void ZVVideoViewController::stopTimeBudget() {
  std::lock_guard lock(mutex_);
  timeBudget_.cancel();
}

// On the serial queue. An ad on screen answers with its close sequence, so
// only a request that has neither cached nor shown its ad ends here.
void ZVVideoViewController::timeBudgetSpent() {
  ZV_ASSERT_ON(serialQueue_);
  if (retired_ || showing_) return;
  ZVLog::system(fmt::format(
      "[ZVVideoViewController] Error! The request for placement {} got no answer in time.",
      placementName_));
  delayRequestBlock_.cancel();
  loading_ = ready_ = showAfterCached_ = invokedShow_ = false;
  unreserveAllResources();
  fail(kLoadFailedError);
}

// --- Showing ----------------------------------------------------------------------

void ZVVideoViewController::showReadyVideo() {
  guarded(kClass, "showReadyVideo", [&] { showWindow(); });
}

void ZVVideoViewController::showWindow() {
  guarded(kClass, "showWindow", [&] {
    runtime().mainQueue().async([self = shared_from_this()] {
      bool presented = false;
      try {
        self->presentWindow(presented);
      } catch (...) {
        detail::reportCaught(kClass, "showWindow", GuardReport::Analytics);
        // A show that never reached the screen is answered with a failure.
        if (!presented) self->failShow();
      }
    });
  });
}

// On the main queue; `presented` turns true once the window is on screen.
void ZVVideoViewController::presentWindow(bool& presented) {
  ZV_ASSERT_ON(runtime().mainQueue());
  if (retired_) return;
  auto& presenter = display()->presenter();
  auto view = playerController_->view();
  if (!view) throw ZVException("ZVVideoViewController", "No video view to show");
  window_ = std::make_shared<ui::Window>(presenter.screen().bounds());
  window_->addSubview(view);
  window_->bindAction(ui::ScreenAction::Skip, view->skipButton());
  window_->bindAction(ui::ScreenAction::Sound, view->soundButton());
  playerController_->setDelegate(weak_from_this());
  playerController_->play();
  showing_ = true;
  presenter.present(window_);
  presented = true;
  stopTimeBudget();
  if (!sentStartWatchingAd_.exchange(true)) {
    if (auto sender = ZVEventSender::shared()) {
      sender->startWatchingAd(placementName_, adId(), kVideoAdType);
    }
  }
  showAfterCached_ = ready_ = isSuccessfulPlayed_ = false;
  wasIdleTimerDisabled_ = platform::ScreenSaver::isDisabled();
  platform::ScreenSaver::setDisabled(true);
}

void ZVVideoViewController::failShow() {
  ZV_ASSERT_ON(runtime().mainQueue());
  guarded(kClass, "showWindow", [&] {
    window_.reset();
    showing_ = showAfterCached_ = invokedShow_ = false;
    onSerial("showWindow", [](ZVVideoViewController& self) { self.fail(kLoadFailedError); });
  });
}

std::string ZVVideoViewController::adId() const {
  auto ad = jsonAd();
  return ad ? ZVAdReply::adId(*ad) : "";
}

void ZVVideoViewController::hideWindow() {
  ZV_ASSERT_ON(runtime().mainQueue());
  guarded(kClass, "hideWindow", [&] {
    if (window_) display()->presenter().dismiss(*window_);
    window_.reset();
    showing_ = false;
    invokedShow_ = false;
  });
}

void ZVVideoViewController::videoWindowWillDisplay() {
  tellHost([](ZivoraDelegate& host, const std::string& placement) {
    host.videoWindowWillDisplay(placement);
  });
}

void ZVVideoViewController::didShowView() {
  tapAd_ = false;
  tapClose_ = false;
  tellHost([](ZivoraDelegate& host, const std::string& placement) {
    host.videoWindowDidDisplay(placement);
  });
}

void ZVVideoViewController::tapCloseView() {
  guarded(kClass, "tapCloseView", [&] {
    playerController_->stop();
    showPostVideoView();
  });
}

void ZVVideoViewController::finishedPlaying() {
  guarded(kClass, "finishedPlaying", [&] {
    isSuccessfulPlayed_ = true;
    if (!sentWatchedAd_.exchange(true)) earnReward();
    showPostVideoView();
  });
}

void ZVVideoViewController::earnReward() {
  auto sendWatched = [placement = placementName_, ad = adId()] {
    if (auto sender = ZVEventSender::shared())
      sender->watchedAdWithPlacement(placement, ad, kVideoAdType);
  };
  auto ledger = RewardLedger::shared();
  if (!ledger) {
    sendWatched();
    return;
  }
  auto record = ledger->earn(placementName_, adId(), std::move(sendWatched));
  std::lock_guard lock(mutex_);
  reward_ = std::move(record);
}

void ZVVideoViewController::deliverReward() {
  std::optional<RewardRecord> reward;
  {
    std::lock_guard lock(mutex_);
    reward.swap(reward_);
  }
  auto ledger = RewardLedger::shared();
  if (reward && ledger) {
    ledger->deliver(*reward, RewardLedger::toHost(host_));
    return;
  }
  // Played to its end without a recorded reward (no ledger): delivered as is.
  tellHost([](ZivoraDelegate& host, const std::string& placement) {
    host.videoReceiveReward(placement);
  });
}

void ZVVideoViewController::showPostVideoView() {
  guarded(kClass, "showPostVideoView", [&] {
    onMain("showPostVideoView", [](ZVVideoViewController& self) {
      platform::ScreenSaver::setDisabled(self.wasIdleTimerDisabled_);
      if (self.postVideoController_) return;
      auto configuration = ZVConfiguration::shared();
      self.postVideoController_ = std::make_shared<ui::ZVPostVideoController>(
          display()->sharedPresenter(), pathForURL,
          configuration ? configuration->closeButtonURL() : std::nullopt);
      self.postVideoController_->initWithConfiguration(self.jsonAd().value_or(nullptr));
      self.postVideoController_->setDelegate(self.weak_from_this());
      self.postVideoController_->show();
      self.tellHost([](ZivoraDelegate& host, const std::string& placement) {
        host.videoDidDismiss(placement);
      });
    });
  });
}

void ZVVideoViewController::videoWindowWillClose() {
  tellHost([](ZivoraDelegate& host, const std::string& placement) {
    host.videoWindowWillClose(placement);
  });
}

void ZVVideoViewController::tapClosePostVideo() {
  guarded(kClass, "tapClosePostVideo", [&] {
    tapClose_ = true;
    hideWindow();
  });
}

void ZVVideoViewController::didHidePostVideo() {
  guarded(kClass, "didHidePostVideo", [&] {
    didHideView();
    unreserveAllResources();
    tellHost([](ZivoraDelegate& host, const std::string& placement) {
      host.videoWindowDidClose(placement);
    });
    if (isSuccessfulPlayed_) deliverReward();
  });
}

void ZVVideoViewController::didHideView() {
  guarded(kClass, "didHideView", [&] {
    hideWindow();
    std::shared_ptr<ZVVideoControllerDelegate> delegate;
    {
      std::lock_guard lock(mutex_);
      delegate = delegate_.lock();
    }
    if (delegate) delegate->hide(shared_from_this());
  });
}

// --- Click-through ----------------------------------------------------------------

void ZVVideoViewController::tapTarget() {
  guarded(kClass, "tapTarget", [&] {
    if (alreadySendTap_) {
      click();
    } else if (!tapAd_.exchange(true)) {
      onSerial("tapTarget", [](ZVVideoViewController& self) { self.sendClick(); });
    } else {
      ZVLog::LogWarning("Already sent clickAd to the server, wait responce.");
    }
  });
}

void ZVVideoViewController::sendClick() {
  const auto ad = jsonAd().value_or(nlohmann::json::object());
  nlohmann::json fields = nlohmann::json::object();
  if (auto configuration = ZVConfiguration::shared()) {
    if (auto appId = configuration->appId()) fields[TS_API_APP_ID] = *appId;
    if (auto uid = configuration->randomUID()) fields[TS_API_RANDOM_UID] = *uid;
    if (auto user = configuration->appUserId()) fields[TS_API_APP_USER_ID] = *user;
  }
  fields[TS_API_PLACEMENT_NAME] = placementName_;
  fields[TS_API_AD_TYPE] = kVideoAdType;
  for (const char* key : {TS_API_AD_ID, TS_API_CLICK_ID}) {
    if (JsonConvert::has(ad, key) && !ad.at(key).is_null()) fields[key] = ad.at(key);
  }
  std::string body;
  try {
    body = JsonConvert::serialize({{TS_API_CLICK_AD, fields}});
  } catch (...) {
    ZVPAnalitics::shared().sendEvent(TSP_EVENT_NAME_ERROR, kClass, "tapTarget",
                                     "Can't create JSON for send click");
    ZVLog::LogWarning("Error! Can't create JSON for send click");
    return;
  }
  runtime().globalQueue().async([self = shared_from_this(), body = std::move(body)] {
    ZVSendRequest::sendPost(body, [&](const nlohmann::json*, int code) {
      self->serialQueue_->async([self, code] {
        guarded(kClass, "tapTarget", [&] { self->receiveClickResponse(code); });
      });
    });
  });
}

void ZVVideoViewController::receiveClickResponse(int code) {
  if (code == TS_HTTP_ERROR) {
    ZVLog::LogDebug("[ZVVideoViewController][handleTap] Error send click, error = {}", code);
    tapAd_ = false;
    return;
  }
  alreadySendTap_ = true;
  click();
}

void ZVVideoViewController::click() {
  guarded(kClass, "click", [&] {
    onMain("clickDispatch", [](ZVVideoViewController& self) {
      if (self.tapClose_) {
        ZVLog::LogDebug(
            "[ZVVideoViewController][click] Receive responce from server on clickAd request, "
            "but video already closed.");
        return;
      }
      if (self.clicking_.exchange(true)) {
        ZVLog::LogDebug("[Zivora] Ignore multiple click");
        return;
      }
      self.tellHost([](ZivoraDelegate& host, const std::string& placement) {
        host.videoPostViewDidClick(placement);
      });
      self.openTarget(ZVAdReply::targetURL(self.jsonAd().value_or(nlohmann::json::object())));
    });
  });
}

void ZVVideoViewController::openTarget(const std::string& target) {
  if (!WebAddress::accepted(target, "target")) {
    clickHandedOver();
    return;
  }
  const auto ad = jsonAd().value_or(nlohmann::json::object());
  const bool tracked = target.find(ZVRedirectRequest::kTrackerHost) != std::string::npos;
  const bool dontOverride = ZVAdReply::dontOverrideRedirection(ad);
  if (!tracked || dontOverride) {
    openURL(target);
    clickHandedOver();
    return;
  }
  auto request = std::make_shared<ZVRedirectRequest>(target);
  request->start(
      [self = shared_from_this(), target, request](const platform::HttpResponse& response) {
        try {
          if (response.status >= 300 && response.status <= 308) {
            const std::string* location = response.header("Location");
            if (!location) throw ZVException("Redirect", "Not found Location header");
            self->openResolved(target, *location);
            return;
          }
        } catch (...) {
          detail::reportCaught(kClass, "click", GuardReport::Analytics);
        }
        self->openURL(target);
        self->clickHandedOver();
      });
}

void ZVVideoViewController::openResolved(const std::string& target, const std::string& location) {
  onMain("click", [target, location](ZVVideoViewController& self) {
    const bool canOpen = WebAddress::accepted(location, "redirect Location") &&
                         context().opener()->canOpenURL(location);
    self.openURL(canOpen ? location : target);
    self.clickHandedOver();
  });
}

void ZVVideoViewController::clickHandedOver() {
  tapAd_ = false;
  clicking_ = false;
}

void ZVVideoViewController::openURL(const std::string& url) {
  guarded(kClass, "openURL", [&] {
    runtime().mainQueue().async(
        [url] { guarded(kClass, "openURL", [&] { context().opener()->openURL(url); }); });
  });
}

}  // namespace zivora
