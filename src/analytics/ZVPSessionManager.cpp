#include "analytics/ZVPSessionManager.h"

#include <chrono>
#include <cstdlib>

#include "analytics/ZVPAnalitics.h"
#include "analytics/ZVPCustomParams.h"
#include "platform/UserDefaults.h"
#include "platform/dispatch/Runtime.h"
#include "platform/dispatch/WeakTask.h"
#include "sdk/Context.h"
#include "util/Guard.h"
#include "util/ZVLog.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

template <class Body>
void backoffice(const char* method, Body&& body) {
  guarded("ZVPSessionManager", method, std::forward<Body>(body), GuardReport::Backoffice);
}

}  // namespace

ZVPSessionManager::ZVPSessionManager(std::weak_ptr<Context> context,
                                     std::shared_ptr<ui::AppLifecycle> lifecycle)
    : context_(std::move(context)), lifecycle_(std::move(lifecycle)) {}

ZVPSessionManager::~ZVPSessionManager() {
  tick_.cancel();
  if (observer_) lifecycle_->removeObserver(observer_);
}

std::int64_t ZVPSessionManager::time() {
  return guarded(
      "ZVPSessionManager", "time", std::int64_t{0},
      [&] {
        auto context = context_.lock();
        if (!context) return std::int64_t{0};
        const auto now = context->runtime().clock().wallNow().time_since_epoch();
        return static_cast<std::int64_t>(
            std::chrono::duration_cast<std::chrono::seconds>(now).count());
      },
      GuardReport::Backoffice);
}

std::shared_ptr<platform::UserDefaults> ZVPSessionManager::configuration() {
  return guarded(
      "ZVPSessionManager", "configuration", std::shared_ptr<platform::UserDefaults>(),
      [&] {
        if (!sessionConfiguration_) {
          auto context = context_.lock();
          if (context) sessionConfiguration_ = context->userDefaults(TSP_SESSION_CONFIGURATION);
          if (!sessionConfiguration_)
            ZVLog::LogDebug("[ZVPSessionManager][configuration] Exception!");
        }
        return sessionConfiguration_;
      },
      GuardReport::Backoffice);
}

void ZVPSessionManager::storeTime(const char* key, std::int64_t seconds) {
  if (auto store = configuration()) store->setValue(key, seconds);
}

void ZVPSessionManager::appOpen() {
  backoffice("appOpen", [&] {
    {
      std::lock_guard lock(mutex_);
      running_ = true;
      sendEventLocked();
      lastRunningTime_ = timeStart_ = time();
      storeTime(TS_SESSION_START_TIME, timeStart_);
      saveStartTime_ = true;
      storeTime(TS_SESSION_LAST_TIME, lastRunningTime_);
    }
    startUpdate();
    std::weak_ptr<ZVPSessionManager> weak = weak_from_this();
    observer_ = lifecycle_->addObserver([weak](ui::AppLifecycle::Event event) {
      auto self = weak.lock();
      if (!self) return;
      if (event == ui::AppLifecycle::Event::WillEnterForeground) {
        self->resume();
      } else {
        self->pause();
      }
    });
  });
}

void ZVPSessionManager::startUpdate() {
  backoffice("startUpdateDispatch", [&] {
    auto context = context_.lock();
    if (!context) return;
    tick_ = dispatch::afterWeak(context->runtime().globalQueue(),
                                std::chrono::seconds(TS_TIME_CHECK_SESSION), weak_from_this(),
                                {"ZVPSessionManager", "sessionTick", GuardReport::Backoffice},
                                [](ZVPSessionManager& self) {
                                  // The context has gone (a reset): the session ends with it.
                                  if (self.context_.expired()) return;
                                  self.validate();
                                  self.startUpdate();
                                });
  });
}

void ZVPSessionManager::validate() {
  backoffice("validate", [&] {
    std::lock_guard lock(mutex_);
    const std::int64_t now = time();
    if (wasRunning_ && lastRunningTime_ < now - TS_TIME_SWITCH_PAUSE) {
      wasRunning_ = false;
      sendEventLocked();
    }
    if (running_) {
      if (!saveStartTime_) {
        storeTime(TS_SESSION_START_TIME, now);
        saveStartTime_ = true;
      }
      wasRunning_ = true;
      lastRunningTime_ = now;
      storeTime(TS_SESSION_LAST_TIME, lastRunningTime_);
    }
  });
}

void ZVPSessionManager::pause() {
  backoffice("pause", [&] {
    std::lock_guard lock(mutex_);
    running_ = false;
    timePause_ = static_cast<std::int32_t>(time());
  });
}

void ZVPSessionManager::resume() {
  backoffice("resume", [&] {
    std::lock_guard lock(mutex_);
    const std::int64_t now = time();
    if (std::llabs(now - timePause_) > TS_TIME_SWITCH_PAUSE) {
      sendEventLocked();
      timeStart_ = lastRunningTime_ = now;
    }
    running_ = true;
  });
}

void ZVPSessionManager::sendEvent() {
  std::lock_guard lock(mutex_);
  sendEventLocked();
}

void ZVPSessionManager::sendEventLocked() {
  backoffice("sendEvent", [&] {
    auto store = configuration();
    if (!store) return;
    const std::int64_t start = store->integerForKey(TS_SESSION_START_TIME).value_or(0);
    const std::int64_t last = store->integerForKey(TS_SESSION_LAST_TIME).value_or(0);
    if (start == 0 || last == 0 || start >= last) return;
    ZVPCustomParams params;
    params.put(TS_ARGUMENT_START_SESSION_TIME, start);
    params.put(TS_ARGUMENT_SESSION_TIME_DURATION, last - start);
    ZVPAnalitics::shared().sendEvent(TS_EVENT_NAME_SESSION_FINISHED, std::move(params));
    store->setValue(TS_SESSION_START_TIME, std::int64_t{0});
    store->setValue(TS_SESSION_LAST_TIME, std::int64_t{0});
    saveStartTime_ = false;
    store->synchronize();
  });
}

}  // namespace zivora
