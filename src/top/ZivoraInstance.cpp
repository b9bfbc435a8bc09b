#include "top/ZivoraInstance.h"

#include <errno.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <nlohmann/json.hpp>

#include "analytics/ZVPAnalitics.h"
#include "analytics/ZVPDeviceInfoHelper.h"
#include "eventqueue/JsonEscape.h"
#include "events/ZVEventSender.h"
#include "events/ZVSendRequest.h"
#include "platform/dispatch/Runtime.h"
#include "platform/dispatch/WeakTask.h"
#include "resources/ZVResourceManager.h"
#include "sdk/Defaults.h"
#include "sdk/InvokeDelegateHelper.h"
#include "sdk/ZVConfiguration.h"
#include "top/AdSide.h"
#include "top/DefaultAdSide.h"
#include "top/HostLogSink.h"
#include "top/HostUrlOpener.h"
#include "ui/Display.h"
#include "util/Guard.h"
#include "util/JsonConvert.h"
#include "util/ZVLog.h"
#include "zivora/ZVConstants.h"
#include "zivora/ZivoraDelegate.h"

namespace zivora {

namespace {

constexpr char kClass[] = "Zivora";
constexpr char kRefusedMessage[] = "[Zivora] Error! Description: {}";

std::mutex& instanceMutex() {
  static std::mutex mutex;
  return mutex;
}

// Never destroyed, like the installed context: exit handlers must not run
// the instance's destructor while its queues are still working.
std::shared_ptr<ZivoraInstance>& instanceSlot() {
  static auto* instance = new std::shared_ptr<ZivoraInstance>();
  return *instance;
}

HostOptions withDefaults(HostOptions host) {
  if (host.applicationName.empty()) host.applicationName = program_invocation_short_name;
  return host;
}

RuntimeOptions withDefaults(RuntimeOptions runtime, const HostOptions& host) {
  if (!runtime.log && host.log) runtime.log = std::make_shared<HostLogSink>(host.log);
  if (!runtime.opener && host.openUrl)
    runtime.opener = std::make_shared<HostUrlOpener>(host.openUrl);
  if (!runtime.runtime) runtime.runtime = defaults::runtime(host);
  if (!runtime.http) runtime.http = defaults::http(host);
  if (!runtime.downloads) runtime.downloads = defaults::downloads(host, runtime.runtime);
  return runtime;
}

// 5, 10, 15 ... seconds, at most 120, in units of `second`.
dispatch::Duration retryDelay(std::int32_t failures, std::chrono::nanoseconds second) {
  auto seconds = std::min<std::int64_t>(120, std::int64_t{TS_AD_REPEAT_REQUEST} * (failures + 1));
  return std::chrono::duration_cast<dispatch::Duration>(second * seconds);
}

// Only an absolute https address may become the ad server endpoint: a bad
// value would be kept for good and break every later launch.
bool isHttpsURL(const std::string& url) {
  constexpr std::string_view kScheme = "https://";
  return url.size() > kScheme.size() && url.compare(0, kScheme.size(), kScheme) == 0 &&
         url.find_first_of(" \t\r\n\"<>\\^`{|}", 0) == std::string::npos &&
         url[kScheme.size()] != '/';
}

bool isHttpURL(const std::string& url) {
  return url.rfind("http://", 0) == 0 || url.rfind("https://", 0) == 0;
}

}  // namespace

std::shared_ptr<ZivoraInstance> ZivoraInstance::start(const std::string& appId, HostOptions host,
                                                      RuntimeOptions runtime) {
  host = withDefaults(std::move(host));
  runtime = withDefaults(std::move(runtime), host);
  auto adSide = runtime.adSide;
  auto context = std::make_shared<Context>(host, runtime);
  Context::install(context);
  ui::Display::of(context)->checkHost(host);
  if (!host.gpuType.empty()) ZVPDeviceInfoHelper::setGPUType(host.gpuType);
  auto invokeDelegate = std::make_shared<InvokeDelegateHelper>();
  if (!adSide) adSide = std::make_shared<DefaultAdSide>(invokeDelegate);

  std::shared_ptr<ZivoraInstance> instance(new ZivoraInstance(context, adSide));
  instance->invokeDelegate_ = std::move(invokeDelegate);
  {
    std::lock_guard lock(instanceMutex());
    instanceSlot() = instance;
  }
  instance->initOnceWithAppId(appId);
  return instance;
}

std::shared_ptr<ZivoraInstance> ZivoraInstance::current() {
  std::lock_guard lock(instanceMutex());
  return instanceSlot();
}

void ZivoraInstance::reset() {
  std::shared_ptr<ZivoraInstance> instance;
  {
    std::lock_guard lock(instanceMutex());
    instance.swap(instanceSlot());
  }
  Context::install(nullptr);
  // The retry timer and the start-up queue stop with the runtime.
  if (instance) instance->context_->shutdown();
}

ZivoraInstance::ZivoraInstance(std::shared_ptr<Context> context, std::shared_ptr<AdSide> adSide)
    : context_(std::move(context)), adSide_(std::move(adSide)) {}

ZivoraInstance::~ZivoraInstance() { delayRequestBlock_.cancel(); }

// --- start-up and the handshake (on serial_) ------------------------------

void ZivoraInstance::initOnceWithAppId(const std::string& appId) {
  guarded(kClass, "initOnceWithAppId", [&] {
    appId_ = appId;
    serial_ = context_->runtime().makeSerialQueue("com.zivora.main");
    // The display opens first, on the one thread that drives it, so that the
    // device facts of the handshake and the first records carry its size.
    dispatch::asyncWeak(context_->runtime().mainQueue(), weak_from_this(),
                        {kClass, "openDisplayDispatch"}, [appId](ZivoraInstance& self) {
                          guarded(kClass, "openDisplay",
                                  [&] { ui::Display::of(self.context_)->open(); });
                          dispatch::asyncWeak(*self.serial_, self.weak_from_this(),
                                              {kClass, "initOnceWithAppIdDispatch"},
                                              [appId](ZivoraInstance& instance) {
                                                if (auto configuration = ZVConfiguration::shared())
                                                  configuration->setAppId(appId);
                                                ZVPAnalitics::sendProfilingEnable(true);
                                                ZVPAnalitics::shared().appOpen();
                                                instance.adSide_->startUp();
                                                instance.sendInitializeRequest();
                                              });
                        });
  });
}

void ZivoraInstance::sendInitializeRequest() {
  bool sent = guarded(kClass, "sendInitializeRequest", false, [&] {
    if (waitInitializeResponse_) {
      ZVLog::LogDebug("[Zivora][initializeRequest] Cancel, loading...");
      return true;
    }
    waitInitializeResponse_ = true;
    if (delayRequestBlock_.valid()) {
      delayRequestBlock_.cancel();
      delayRequestBlock_ = {};
    }
    ZVLog::LogDebug("Request initialization");
    auto body = getDataForInitialization();
    if (!body) {
      notifyAboutError();
      return true;
    }
    std::weak_ptr<ZivoraInstance> weak = shared_from_this();
    ZVSendRequest::sendPost(*body, [&, weak](const nlohmann::json* reply, int code) {
      std::optional<nlohmann::json> copy;
      if (reply) copy = *reply;
      dispatch::asyncWeak(*serial_, weak, {kClass, "receiveInitializeReplyDispatch"},
                          [copy = std::move(copy), code](ZivoraInstance& self) mutable {
                            self.receiveInitializeReply(std::move(copy), code);
                          });
    });
    return true;
  });
  if (!sent) repeateRequestAfterError();
}

void ZivoraInstance::receiveInitializeReply(std::optional<nlohmann::json> reply, int code) {
  guarded(kClass, "sendInitializeRequestDispatch", [&] {
    if (code != TS_HTTP_ERROR && reply) {
      parseInitialization(*reply);
      return;
    }
    ZVLog::LogDebug("[Zivora][initializeRequest] Error request initialization, error = {}", code);
    repeateRequestAfterError();
  });
}

void ZivoraInstance::parseInitialization(const nlohmann::json& reply) {
  guarded(kClass, "parseInitialization", [&] {
    initializationJson_ = std::make_unique<nlohmann::json>(reply);
    initializeAds();
  });
}

void ZivoraInstance::initializeAds() {
  guarded(kClass, "initializeAds", [&] {
    const nlohmann::json& reply = *initializationJson_;
    storeButtonImages(reply);
    storeServerURL(reply);
    adSide_->serverConnected();
    // Owed rewards reach the main queue ahead of any ad's screens.
    adSide_->redeliverRewards();
    adSide_->newVideoManager();
    if (JsonConvert::has(reply, TS_API_ERROR)) {
      {
        std::lock_guard lock(mutex_);
        error_ = JsonConvert::describe(&reply.at(TS_API_ERROR));
      }
      notifyAboutError();
      return;
    }
    removeFiles(reply);
    bool rewardsRequested = false;
    {
      std::lock_guard lock(mutex_);
      initialized_ = true;
      failInitialize_ = false;
      rewardsRequested = std::exchange(isRequestedMotivatedRewards_, false);
    }
    failRequest_ = 0;
    replayRequestedAds();
    if (rewardsRequested) adSide_->requestMotivatedRewards();
  });
}

void ZivoraInstance::storeButtonImages(const nlohmann::json& reply) {
  auto configuration = ZVConfiguration::shared();
  if (!configuration) return;
  using Setter = void (ZVConfiguration::*)(std::optional<std::string>) noexcept;
  struct Button {
    const char* key;
    const char* setterName;
    Setter setter;
  };
  const Button buttons[] = {
      {TS_API_CLOSE_BUTTON, "setCloseButtonURL", &ZVConfiguration::setCloseButtonURL},
      {TS_API_SOUND_ON_BUTTON, "setSoundOnButtonURL", &ZVConfiguration::setSoundOnButtonURL},
      {TS_API_SOUND_OFF_BUTTON, "setSoundOffButtonURL", &ZVConfiguration::setSoundOffButtonURL},
  };
  for (const auto& button : buttons) {
    if (!JsonConvert::has(reply, button.key)) continue;
    // A value of the wrong type is refused by its own setter's guard, so
    // the handshake never stops half-way.
    guarded("ZVConfiguration", button.setterName, [&] {
      ((*configuration).*button.setter)(JsonConvert::textValue(reply.at(button.key)));
    });
  }
}

void ZivoraInstance::storeServerURL(const nlohmann::json& reply) {
  if (!JsonConvert::has(reply, TS_API_NEW_URL)) return;
  const auto& value = reply.at(TS_API_NEW_URL);
  if (!value.is_string() || !isHttpsURL(value.get<std::string>())) {
    ZVLog::LogWarning("[Zivora][initializeAds] Ignored newURL, not an absolute https URL: {}",
                      JsonConvert::describe(&value));
    return;
  }
  if (auto configuration = ZVConfiguration::shared())
    configuration->setServerURL(value.get<std::string>());
}

void ZivoraInstance::removeFiles(const nlohmann::json& reply) {
  if (!JsonConvert::has(reply, TS_API_REMOVE_FILES) || !reply.at(TS_API_REMOVE_FILES).is_array())
    return;
  for (const auto& entry : reply.at(TS_API_REMOVE_FILES)) {
    std::string listed = JsonConvert::describe(&entry);
    // The server lists resource URLs; the cache knows files by their names.
    std::string name = isHttpURL(listed) ? ZVResourceManager::convertURLToFileName(listed) : listed;
    adSide_->unreserveAll(name);
    adSide_->removeFile(name);
  }
}

void ZivoraInstance::replayRequestedAds() {
  std::vector<ZVWaitInfo> parked;
  {
    std::lock_guard lock(mutex_);
    parked = requestedAdList_;
  }
  bool showing = false;
  for (const auto& info : parked) {
    if (info.adType() != ZVWaitInfo::kVideoAdType) continue;
    if (info.show() && !showing) {
      showing = true;
      showVideo(info.placementName());
    } else {
      cacheVideo(info.placementName());
    }
  }
}

void ZivoraInstance::notifyAboutError() {
  std::vector<ZVWaitInfo> parked;
  {
    std::lock_guard lock(mutex_);
    failInitialize_ = true;
    parked.swap(requestedAdList_);
  }
  for (const auto& info : parked) {
    if (info.adType() == ZVWaitInfo::kVideoAdType) {
      invokeDelegate_->videoDidFailToLoad(info.placementName(), ZivoraErrorInitializationFailed);
    }
  }
}

void ZivoraInstance::repeateRequestAfterError() {
  guarded(kClass, "repeateRequestAfterError", [&] {
    if (failRequest_ >= 1) notifyAboutError();
    delayRequestBlock_.cancel();
    delayRequestBlock_ = dispatch::afterWeak(
        *serial_, retryDelay(failRequest_, context_->runtimeOptions().retryTimeUnit),
        weak_from_this(), {kClass, "repeateRequestAfterErrorDispatch"}, [](ZivoraInstance& self) {
          self.waitInitializeResponse_ = false;
          self.sendInitializeRequest();
        });
    ++failRequest_;
  });
}

std::optional<std::string> ZivoraInstance::getDataForInitialization() {
  return guarded(
      kClass, "getDataForInitialization", std::optional<std::string>(),
      [&]() -> std::optional<std::string> {
        try {
          nlohmann::json body = {{TS_API_GET_INITIALIZATION,
                                  {{TS_API_APP_ID, appId_}, {TS_API_DEVICE_INFO, deviceInfo()}}}};
          return JsonConvert::serialize(body);
        } catch (const nlohmann::json::exception&) {
          ZVPAnalitics::shared().sendEvent("fatalError", kClass, "getDataForInitialization",
                                           "Can't create initialization JSON");
          ZVLog::LogWarning("Error Initialization Zivora");
          return std::nullopt;
        }
      });
}

// The device block; a value that is absent (nil) leaves its key out.
nlohmann::json ZivoraInstance::deviceInfo() {
  ZVPDeviceInfoHelper device(appId_, std::nullopt);
  nlohmann::json info = {{TS_API_PLATFORM_ID, device.platformId()},
                         {TS_API_DEVICE_ID, device.deviceId()},
                         {TS_API_LIMIT_AD_TRACKING, device.limitAdTracking()},
                         {TS_API_CLIENT_VERSION, device.clientVersion()},
                         {TS_API_SDK_VERSION, TS_AD_SDK_VERSION},
                         {TS_API_DIMENSION_X, device.dimensionX()},
                         {TS_API_DIMENTION_Y, device.dimensionY()},
                         {TS_API_RAM_SIZE, device.RAMSize()},
                         {TS_API_LANGUAGE, device.language()}};
  auto put = [&](const char* key, std::optional<std::string> value) {
    if (value) info[key] = *value;
  };
  put(TS_API_ADVERTISE_ID, device.advertisingId());
  put(TS_API_DEVICE_NAME, encode(device.deviceName()));
  put(TS_API_OS_VERSION, encode(device.OSVersion()));
  if (auto gpu = ZVPDeviceInfoHelper::GPUType()) put(TS_API_GPU_TYPE, encode(*gpu));
  put(TS_API_DEVICE_USER_NAME, encode(deviceUserName()));
  if (auto configuration = ZVConfiguration::shared()) {
    put(TS_API_RANDOM_UID, configuration->randomUID());
    put(TS_API_APP_USER_ID, encode(configuration->appUserId()));
  }
  return info;
}

std::optional<std::string> ZivoraInstance::deviceUserName() {
  return guarded(kClass, "deviceUserName", std::optional<std::string>(),
                 [] { return std::optional<std::string>(defaults::hostName()); });
}

std::optional<std::string> ZivoraInstance::encode(std::optional<std::string_view> text) {
  return guarded(kClass, "encode", std::optional<std::string>(),
                 [&] { return ZVSendRequest::urlEncode(JsonEscape::escape(text)); });
}

// --- public operations (the host's thread) ---------------------------------

bool ZivoraInstance::refused() {
  std::optional<std::string> error;
  {
    std::lock_guard lock(mutex_);
    error = error_;
  }
  if (error) ZVLog::system(fmt::format(kRefusedMessage, *error));
  return error.has_value();
}

void ZivoraInstance::setAppUserId(std::optional<std::string> userId) {
  if (refused()) return;
  if (auto configuration = ZVConfiguration::shared())
    configuration->setAppUserId(std::move(userId));
}

void ZivoraInstance::setDelegate(std::shared_ptr<ZivoraDelegate> delegate) {
  invokeDelegate_->setDelegate(std::move(delegate));
}

std::shared_ptr<ZivoraDelegate> ZivoraInstance::delegate() const { return invokeDelegate_; }

void ZivoraInstance::requestVideo(const std::string& placement, bool show) {
  if (refused()) return;
  std::unique_lock lock(mutex_);
  if (initialized_) {
    lock.unlock();
    if (show && !adSide_->isRequestShow()) {
      adSide_->showVideo(placement);
    } else {
      adSide_->cacheVideo(placement);
    }
    return;
  }
  if (failInitialize_) {
    lock.unlock();
    invokeDelegate_->videoDidFailToLoad(placement, ZivoraErrorInitializationFailed);
    return;
  }
  requestedAdList_.emplace_back(placement, ZVWaitInfo::kVideoAdType, show);
}

void ZivoraInstance::showVideo(const std::string& placement) { requestVideo(placement, true); }

void ZivoraInstance::cacheVideo(const std::string& placement) { requestVideo(placement, false); }

bool ZivoraInstance::isReadyVideo(const std::string& placement) {
  if (refused()) return false;
  {
    std::lock_guard lock(mutex_);
    if (!initialized_) return false;
  }
  return adSide_->isReadyVideo(placement);
}

void ZivoraInstance::purchaseEvent(double amount, const std::string& currency,
                                   const std::string& transactionId,
                                   std::optional<std::string> receipt) {
  dispatch::asyncWeak(
      *serial_, weak_from_this(), {kClass, "purchaseEventDispatch"},
      [amount, currency, transactionId, receipt = std::move(receipt)](ZivoraInstance& self) {
        if (!self.refused()) self.adSide_->purchaseEvent(amount, currency, transactionId, receipt);
      });
}

void ZivoraInstance::requestMotivatedRewards() {
  if (refused()) return;
  {
    std::lock_guard lock(mutex_);
    if (!initialized_) {
      isRequestedMotivatedRewards_ = true;
      return;
    }
  }
  adSide_->requestMotivatedRewards();
}

void ZivoraInstance::removeMotivatedRewards(const std::vector<std::string>& rewardIds) {
  if (refused()) return;
  {
    std::lock_guard lock(mutex_);
    if (!initialized_) return;
  }
  adSide_->removeMotivatedRewards(rewardIds);
}

std::size_t ZivoraInstance::pump() { return context_->runtime().pumpMainQueue(); }

bool ZivoraInstance::handleEvent(const void* sdlEvent) {
  if (!sdlEvent) return false;
  return ui::Display::of(context_)->handleEvent(sdlEvent);
}

bool ZivoraInstance::isPresenting() { return ui::Display::of(context_)->isPresenting(); }

bool ZivoraInstance::performScreenAction(ZivoraScreenAction action) {
  auto display = ui::Display::of(context_);
  if (!display->isPresenting()) return false;
  static constexpr ui::ScreenAction kActions[] = {ui::ScreenAction::Skip, ui::ScreenAction::Sound,
                                                  ui::ScreenAction::CallToAction,
                                                  ui::ScreenAction::Close};
  const auto index = static_cast<std::size_t>(action);
  if (index >= std::size(kActions)) return false;
  context_->runtime().mainQueue().async([display, screenAction = kActions[index]] {
    guarded(kClass, "performScreenAction",
            [&] { display->presenter().performAction(screenAction); });
  });
  return true;
}

std::optional<ZivoraScreenImage> ZivoraInstance::captureScreen() {
  auto display = ui::Display::of(context_);
  auto draw = [display]() -> std::optional<ZivoraScreenImage> {
    if (!display->isPresenting()) return std::nullopt;
    auto& presenter = display->presenter();
    presenter.renderFrame(true);
    const ui::Canvas& canvas = presenter.canvas();
    ZivoraScreenImage image{canvas.pixelWidth(), canvas.pixelHeight(), canvas.stride(), {}};
    const auto bytes = static_cast<std::size_t>(image.stride) * image.height;
    image.pixels.assign(canvas.pixels(), canvas.pixels() + bytes);
    return image;
  };
  auto& main = context_->runtime().mainQueue();
  // The pumping host's thread is the main queue's between pumps.
  if (main.isCurrent() || context_->host().mainQueueMode == MainQueueMode::HostPumped)
    return draw();
  auto answer = std::make_shared<std::promise<std::optional<ZivoraScreenImage>>>();
  auto picture = answer->get_future();
  main.async([draw, answer] {
    answer->set_value(guarded(kClass, "captureScreen", std::optional<ZivoraScreenImage>(), draw));
  });
  if (picture.wait_for(std::chrono::seconds(5)) != std::future_status::ready) return std::nullopt;
  return picture.get();
}

bool ZivoraInstance::hasQueuedEvents() {
  auto sender = ZVEventSender::shared();
  return sender && sender->eventController().saver().hasSavedEvents();
}

}  // namespace zivora
