#pragma once

#include <fmt/format.h>

#include <atomic>
#include <string_view>

#include "util/LogSink.h"

namespace zivora {

// Process-wide switches, both on at start. logEnable() sets only the debug
// switch, so warnings are always written.
extern std::atomic<bool> WARNING_L0G_ENABLED;
extern std::atomic<bool> DEBUG_L0G_ENABLED;

// The ad side's log. Texts name the class and the operation in square
// brackets: "[ZVResourceManager][removeFile] file: {}".
class ZVLog {
 public:
  template <class... Args>
  static void LogDebug(fmt::format_string<Args...> format, Args&&... args) noexcept {
    write(LogLevel::Debug, DEBUG_L0G_ENABLED, format, std::forward<Args>(args)...);
  }

  template <class... Args>
  static void LogWarning(fmt::format_string<Args...> format, Args&&... args) noexcept {
    write(LogLevel::Warning, WARNING_L0G_ENABLED, format, std::forward<Args>(args)...);
  }

  // A line that is always written, whatever the switches say.
  static void system(std::string_view text) noexcept;

  static void logEnable(bool enable) noexcept;

  // Writes the formatted line when `enabled` is on; a failure to format or
  // write becomes the system line `failure`. Shared by every log of the SDK
  // that has a switch of its own.
  template <class... Args>
  static void writeIf(LogLevel level, const std::atomic<bool>& enabled, std::string_view failure,
                      fmt::format_string<Args...> format, Args&&... args) noexcept {
    if (!enabled.load(std::memory_order_relaxed)) return;
    try {
      emit(level, fmt::format(format, std::forward<Args>(args)...));
    } catch (...) {
      system(failure);
    }
  }

 private:
  template <class... Args>
  static void write(LogLevel level, const std::atomic<bool>& enabled,
                    fmt::format_string<Args...> format, Args&&... args) noexcept {
    writeIf(level, enabled,
            level == LogLevel::Debug ? "[ZVLog][LogDebug] Exception!"
                                     : "[ZVLog][LogWarning] Exception!",
            format, std::forward<Args>(args)...);
  }

  static void emit(LogLevel level, std::string_view text);
};

}  // namespace zivora
