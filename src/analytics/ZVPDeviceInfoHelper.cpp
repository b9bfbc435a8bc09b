#include "analytics/ZVPDeviceInfoHelper.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <stdexcept>

#include "analytics/ZVPSDKVersion.h"
#include "analytics/ZVPSaveKeychain.h"
#include "platform/Uuid.h"
#include "platform/dispatch/Runtime.h"
#include "sdk/Context.h"
#include "sdk/Defaults.h"
#include "ui/Display.h"
#include "util/Guard.h"
#include "zivora/ZVConstants.h"

namespace zivora {

namespace {

constexpr char kClass[] = "ZVPDeviceInfoHelper";
constexpr char kError[] = "error";
// The resettable advertising identifier the SDK keeps beside the others.
constexpr char kAdvertisingIdKey[] = "zvp_advertising_id";

std::shared_ptr<Context> context() {
  auto current = Context::current();
  if (!current) throw std::runtime_error("no context");
  return current;
}

template <class R, class Body>
R fact(const char* operation, R fallback, Body&& body) noexcept {
  return guarded(kClass, operation, std::move(fallback), std::forward<Body>(body),
                 GuardReport::Backoffice);
}

std::mutex& gpuMutex() {
  static std::mutex mutex;
  return mutex;
}

std::optional<std::string>& gpuType() {
  static std::optional<std::string> type;
  return type;
}

}  // namespace

ZVPDeviceInfoHelper::ZVPDeviceInfoHelper(std::string appId,
                                         std::optional<std::string> gameUserId) noexcept {
  guarded(
      kClass, "initWithAppId",
      [&] {
        appId_ = std::move(appId);
        cachedGameUserId_ =
            gameUserId ? std::move(gameUserId)
                       : ZVPSaveKeychain::itemForKey(ZVP_GAME_USER_ID_KEY, ZVP_IDFV_SERVICE);
      },
      GuardReport::Backoffice);
}

std::int64_t ZVPDeviceInfoHelper::clientTimestamp() noexcept {
  return fact("clientTimestamp", std::int64_t{0}, [] {
    auto now = context()->runtime().clock().wallNow().time_since_epoch();
    return static_cast<std::int64_t>(std::chrono::duration_cast<std::chrono::seconds>(now).count());
  });
}

std::string ZVPDeviceInfoHelper::clientPackageName() noexcept {
  return fact("clientPackageName", std::string(kError), [] {
    const auto& name = context()->host().applicationName;
    if (name.empty()) throw std::runtime_error("no application name");
    return name;
  });
}

std::string ZVPDeviceInfoHelper::clientVersion() noexcept {
  // A host that declares no version is not a failure: the version is then
  // empty, and nothing is logged.
  return fact("clientVersion", std::string(kError),
              [] { return context()->host().applicationVersion; });
}

std::string ZVPDeviceInfoHelper::SDKVersion() noexcept {
  return fact("SDKVersion", std::string(kError),
              [] { return std::string(ZVPSDKVersion::version()); });
}

int ZVPDeviceInfoHelper::platformId() noexcept { return TS_PLATFORM_ID; }

std::string ZVPDeviceInfoHelper::deviceName() noexcept {
  return fact("deviceName", std::string(kError), [] { return defaults::machine(); });
}

std::string ZVPDeviceInfoHelper::OSVersion() noexcept {
  return fact("OSVersion", std::string(kError), [] { return defaults::osVersion(); });
}

template <class Make>
std::string ZVPDeviceInfoHelper::storedIdentity(const char* key, Make&& make) {
  ZVPKeychainError error;
  if (auto stored = ZVPSaveKeychain::itemForKey(key, ZVP_IDFV_SERVICE, &error)) return *stored;
  if (error.code != platform::kSecretItemNotFound) throw std::runtime_error(error.description);
  std::string made = make();
  ZVPSaveKeychain::saveItem(made, key, ZVP_IDFV_SERVICE);
  return made;
}

std::string ZVPDeviceInfoHelper::deviceId() noexcept {
  return fact("deviceId", std::string(kError), [] {
    return storedIdentity(ZVP_IDFV_KEY, [] { return platform::Uuid::uuidString(); });
  });
}

std::string ZVPDeviceInfoHelper::randomUID() noexcept {
  return fact("randomUID", std::string(kError), [] {
    return storedIdentity(ZVP_RANDOM_KEY, [] {
      return platform::Uuid::uuidString() + "-" + platform::Uuid::uuidString();
    });
  });
}

int ZVPDeviceInfoHelper::shorterSide(const ScreenMetrics& screen) {
  return static_cast<int>(std::min(screen.width * screen.scale, screen.height * screen.scale));
}

int ZVPDeviceInfoHelper::longerSide(const ScreenMetrics& screen) {
  return static_cast<int>(std::max(screen.width * screen.scale, screen.height * screen.scale));
}

ScreenMetrics ZVPDeviceInfoHelper::screen() {
  auto current = context();
  const auto& host = current->host();
  if (host.screenWidth > 0 && host.screenHeight > 0)
    return ScreenMetrics{double(host.screenWidth), double(host.screenHeight), 1};
  // What the display read on its own thread when it opened (the window
  // system is driven from that thread only); zero before it opened.
  const auto pixels = ui::Display::of(current)->pixelSize();
  if (!pixels) return ScreenMetrics{};
  return ScreenMetrics{pixels->width, pixels->height, 1};
}

int ZVPDeviceInfoHelper::dimensionX() noexcept {
  return fact("dimensionX", 0, [] { return shorterSide(screen()); });
}

int ZVPDeviceInfoHelper::dimensionY() noexcept {
  return fact("dimensionY", 0, [] { return longerSide(screen()); });
}

std::int64_t ZVPDeviceInfoHelper::RAMSize() noexcept {
  return fact("RAMSize", std::int64_t{0}, [] { return defaults::ramMiB(); });
}

std::optional<std::string> ZVPDeviceInfoHelper::GPUType() noexcept {
  std::lock_guard lock(gpuMutex());
  return gpuType();
}

void ZVPDeviceInfoHelper::setGPUType(std::optional<std::string> type) noexcept {
  std::lock_guard lock(gpuMutex());
  gpuType() = std::move(type);
}

std::string ZVPDeviceInfoHelper::language() noexcept {
  return fact("language", std::string(kError), [] { return defaults::language(); });
}

std::optional<std::string> ZVPDeviceInfoHelper::advertisingId() noexcept {
  return fact("advertisingId", std::optional<std::string>(std::string(kError)),
              [this]() -> std::optional<std::string> {
                if (limitAdTracking() == 1) return std::nullopt;
                return storedIdentity(kAdvertisingIdKey,
                                      [] { return platform::Uuid::uuidString(); });
              });
}

int ZVPDeviceInfoHelper::limitAdTracking() noexcept {
  return fact("advertisingId", 0, [] { return context()->host().limitAdTracking ? 1 : 0; });
}

bool ZVPDeviceInfoHelper::resetAdvertisingId() noexcept {
  return ZVPSaveKeychain::deleteItemForKey(kAdvertisingIdKey, ZVP_IDFV_SERVICE);
}

bool ZVPDeviceInfoHelper::setGameUserId(std::optional<std::string> gameUserId) noexcept {
  return fact("setGameUserId", false, [&] {
    if (!gameUserId || gameUserId == cachedGameUserId_) return false;
    cachedGameUserId_ = gameUserId;
    ZVPSaveKeychain::saveItem(*gameUserId, ZVP_GAME_USER_ID_KEY, ZVP_IDFV_SERVICE);
    return true;
  });
}

}  // namespace zivora
