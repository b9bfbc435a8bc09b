#include "sdk/ZVConfiguration.h"

#include <fmt/format.h>

#include <chrono>
#include <utility>

#include "platform/UserDefaults.h"
#include "platform/Uuid.h"
#include "platform/dispatch/Queue.h"
#include "platform/dispatch/Runtime.h"
#include "sdk/Context.h"
#include "util/Guard.h"
#include "util/Upcalls.h"
#include "util/ZVException.h"
#include "util/ZVLog.h"
#include "zivora/ZVConstants.h"

namespace zivora {

namespace {

constexpr const char* kClassName = "ZVConfiguration";
constexpr const char* kWriteQueueLabel = "com.zivora.configuration";

// Store keys. Three differ on purpose from the JSON keys that fill them.
constexpr const char* kAppIdKey = "appId";
constexpr const char* kAppUserIdKey = "appUserId";
constexpr const char* kRandomUIDKey = "randomUID";
constexpr const char* kCloseButtonKey = "closeButton";
constexpr const char* kSoundOnKey = "soundOnURL";
constexpr const char* kSoundOffKey = "soundOffURL";
constexpr const char* kServerURLKey = "serverURL";

using OptionalString = std::optional<std::string>;

}  // namespace

ZVConfiguration::ZVConfiguration(std::weak_ptr<Context> context) : context_(std::move(context)) {}

std::shared_ptr<ZVConfiguration> ZVConfiguration::shared() noexcept {
  using Pointer = std::shared_ptr<ZVConfiguration>;
  return guarded(kClassName, "sharedDispatch", Pointer(), [] {
    auto context = Context::current();
    if (!context) return Pointer();
    std::weak_ptr<Context> owner = context;
    return context->instance<ZVConfiguration>(
        [&] { return std::make_shared<ZVConfiguration>(owner); });
  });
}

std::shared_ptr<platform::UserDefaults> ZVConfiguration::configuration() noexcept {
  std::lock_guard lock(configurationMutex_);
  if (!configurationOpened_) {
    // One attempt: a store that cannot be opened stays absent, and its
    // failure is reported once, not on every read.
    configurationOpened_ = true;
    configutation_ = openSuite();
  }
  return configutation_;
}

std::shared_ptr<platform::UserDefaults> ZVConfiguration::openSuite() noexcept {
  try {
    auto context = context_.lock();
    if (!context) throw ZVException("NoContext", "the SDK's context is gone");
    auto suite = context->userDefaults(TS_COMMON_CONFIGURATION_PLIST);
    if (!suite) {
      throw ZVException(
          "StoreUnavailable",
          fmt::format("the user defaults suite {} cannot be opened at {}",
                      TS_COMMON_CONFIGURATION_PLIST, context->paths().preferencesFile().string()));
    }
    return suite;
  } catch (...) {
    auto failure = ZVException::describe(std::current_exception());
    upcalls::reporter().sendEvent("error", kClassName, "configuration", failure.reason());
    return nullptr;
  }
}

OptionalString ZVConfiguration::readString(const char* operation, const char* key) noexcept {
  return guarded(kClassName, operation, OptionalString(), [&]() -> OptionalString {
    auto store = configuration();
    return store ? store->stringForKey(key) : std::nullopt;
  });
}

void ZVConfiguration::writeString(const char* operation, const char* key,
                                  const OptionalString& value) noexcept {
  guarded(kClassName, operation, [&] {
    auto store = configuration();
    if (!store) return;
    // The write commits before it returns; synchronize() is kept for the
    // record of what every setter promises.
    if (value) {
      store->setValue(key, *value);
    } else {
      store->removeObjectForKey(key);
    }
    store->synchronize();
  });
}

OptionalString ZVConfiguration::appId() noexcept { return readString("appId", kAppIdKey); }

void ZVConfiguration::setAppId(OptionalString appId) noexcept {
  writeString("setAppId", kAppIdKey, appId);
}

OptionalString ZVConfiguration::appUserId() noexcept {
  {
    std::lock_guard lock(appUserIdMutex_);
    if (appUserId_) return *appUserId_;
  }
  return readString("appUserId", kAppUserIdKey);
}

void ZVConfiguration::setAppUserId(OptionalString appUserId) noexcept {
  guarded(kClassName, "setAppUserId", [&] {
    std::unique_lock lock(appUserIdMutex_);
    auto queue = writeQueue();
    appUserId_ = appUserId;
    if (!queue) {
      lock.unlock();
      writeString("setAppUserId", kAppUserIdKey, appUserId);
      return;
    }
    if (std::exchange(appUserIdWriteQueued_, true)) return;
    queue->async([self = shared_from_this()] { self->writeAppUserId(); });
  });
}

// One queued write takes the value set last: calls made while it waited
// fold into it, and the store never goes back to a value set before the
// one it holds.
void ZVConfiguration::writeAppUserId() noexcept {
  OptionalString value;
  {
    std::lock_guard lock(appUserIdMutex_);
    appUserIdWriteQueued_ = false;
    if (appUserId_) value = *appUserId_;
  }
  writeString("setAppUserId", kAppUserIdKey, value);
}

// Made on first use, under appUserIdMutex_; null without a runtime.
std::shared_ptr<dispatch::Queue> ZVConfiguration::writeQueue() {
  if (!writeQueueMade_) {
    writeQueueMade_ = true;
    auto context = context_.lock();
    try {
      if (context && context->hasRuntime())
        writeQueue_ = context->runtime().makeSerialQueue(kWriteQueueLabel);
    } catch (const std::exception& error) {
      // A runtime without queues of its own: the value is written through.
      ZVLog::LogDebug("[ZVConfiguration] No configuration queue: {}", error.what());
    }
  }
  return writeQueue_;
}

OptionalString ZVConfiguration::closeButtonURL() noexcept {
  return readString("closeButtonURL", kCloseButtonKey);
}

void ZVConfiguration::setCloseButtonURL(OptionalString url) noexcept {
  writeString("setCloseButtonURL", kCloseButtonKey, url);
}

OptionalString ZVConfiguration::soundOnButtonURL() noexcept {
  return readString("soundOnButtonURL", kSoundOnKey);
}

void ZVConfiguration::setSoundOnButtonURL(OptionalString url) noexcept {
  writeString("setSoundOnButtonURL", kSoundOnKey, url);
}

OptionalString ZVConfiguration::soundOffButtonURL() noexcept {
  return readString("soundOffButtonURL", kSoundOffKey);
}

void ZVConfiguration::setSoundOffButtonURL(OptionalString url) noexcept {
  writeString("setSoundOffButtonURL", kSoundOffKey, url);
}

OptionalString ZVConfiguration::serverURL() noexcept {
  return guarded(kClassName, "serverURL", OptionalString(), [&]() -> OptionalString {
    std::lock_guard lock(serverURLMutex_);
    if (!serverURL_) {
      auto store = configuration();
      serverURL_ = store ? store->stringForKey(kServerURLKey) : std::nullopt;
    }
    return *serverURL_ ? *serverURL_ : defaultServerURL();
  });
}

void ZVConfiguration::setServerURL(OptionalString url) noexcept {
  guarded(kClassName, "setServerURL", [&] {
    std::lock_guard lock(serverURLMutex_);
    writeString("setServerURL", kServerURLKey, url);
    // Read back on the next ask: a write the store refused leaves the
    // stored value in force.
    serverURL_.reset();
  });
}

OptionalString ZVConfiguration::randomUID() noexcept {
  return guarded(kClassName, "randomUID", OptionalString(), [&]() -> OptionalString {
    auto store = configuration();
    if (auto stored = store ? store->stringForKey(kRandomUIDKey) : std::nullopt) return stored;
    ZVLog::LogDebug("Create new UID");
    auto uid = generateNewUID();
    if (store && uid) {
      store->setValue(kRandomUIDKey, *uid);
      store->synchronize();
    }
    return uid;
  });
}

OptionalString ZVConfiguration::generateNewUID() noexcept {
  return guarded(kClassName, "generateNewUID", OptionalString(), [&]() -> OptionalString {
    // The seconds are printed as a 32-bit integer, as the server expects;
    // the conversion wraps after 2038.
    auto seconds = static_cast<std::int32_t>(secondsSince1970());
    return fmt::format("{}-{}", seconds, platform::Uuid::uuidString());
  });
}

std::string ZVConfiguration::defaultServerURL() const {
  auto context = context_.lock();
  if (context && !context->host().adEndpoint.empty()) return context->host().adEndpoint;
  return TS_HOST_URL;
}

std::int64_t ZVConfiguration::secondsSince1970() const {
  auto context = context_.lock();
  auto now = context && context->hasRuntime() ? context->runtime().clock().wallNow()
                                              : std::chrono::system_clock::now();
  return std::chrono::duration_cast<std::chrono::seconds>(now.time_since_epoch()).count();
}

}  // namespace zivora
