#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "platform/dispatch/TaskHandle.h"
#include "ui/AppLifecycle.h"

namespace zivora {

class Context;
namespace platform {
class UserDefaults;
}

// Measures foreground sessions and reports each finished one as a
// "SessionFinished" record (its start and duration in seconds). A tick every
// 3 s on the global queue keeps the current session alive; an absence of
// more than 30 s ends it. Start and last-seen times survive the process in
// the "sessionConfigurationProfiling" suite, so a session cut short by a
// crash is reported by the next start.
class ZVPSessionManager : public std::enable_shared_from_this<ZVPSessionManager> {
 public:
  // The manager keeps the lifecycle alive: its last owner may be a tick
  // still running on the global queue after the context has gone, and it
  // unregisters from the lifecycle when it goes.
  ZVPSessionManager(std::weak_ptr<Context> context, std::shared_ptr<ui::AppLifecycle> lifecycle);
  ~ZVPSessionManager();
  ZVPSessionManager(const ZVPSessionManager&) = delete;
  ZVPSessionManager& operator=(const ZVPSessionManager&) = delete;

  void appOpen();
  void resume();
  void pause();
  void validate();
  // Reports the session the store holds, if it lasted at least a tick.
  void sendEvent();
  // Seconds since 1970; 0 on failure.
  std::int64_t time();
  std::shared_ptr<platform::UserDefaults> configuration();

 private:
  void startUpdate();
  void sendEventLocked();
  void storeTime(const char* key, std::int64_t seconds);

  std::weak_ptr<Context> context_;
  std::shared_ptr<ui::AppLifecycle> lifecycle_;
  ui::AppLifecycle::Token observer_ = 0;
  dispatch::TaskHandle tick_;

  // The tick runs on the global queue and the lifecycle on the main queue.
  std::mutex mutex_;
  bool running_ = false;
  bool wasRunning_ = false;
  bool saveStartTime_ = false;
  std::int64_t timeStart_ = 0;
  std::int64_t lastRunningTime_ = 0;
  std::int32_t timePause_ = 0;
  std::shared_ptr<platform::UserDefaults> sessionConfiguration_;
};

}  // namespace zivora
