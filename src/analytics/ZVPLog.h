#pragma once

#include <atomic>

#include "util/ZVLog.h"

namespace zivora {

// The analytics module's log: one switch of its own (on at start) for both
// levels. Its failures go to the system log only, never to analytics.
class ZVPLog {
 public:
  template <class... Args>
  static void LogDebug(fmt::format_string<Args...> format, Args&&... args) noexcept {
    ZVLog::writeIf(LogLevel::Debug, enabled_, "Backoffice [ZVPLog][LogDebug] Error!", format,
                   std::forward<Args>(args)...);
  }

  template <class... Args>
  static void LogWarning(fmt::format_string<Args...> format, Args&&... args) noexcept {
    ZVLog::writeIf(LogLevel::Warning, enabled_, "Backoffice [ZVPLog][LogWarning] Error!", format,
                   std::forward<Args>(args)...);
  }

  static void logEnable(bool enable) noexcept { enabled_.store(enable); }
  static bool isEnabled() noexcept { return enabled_.load(); }

 private:
  static inline std::atomic<bool> enabled_{true};
};

}  // namespace zivora
