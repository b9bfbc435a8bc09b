#pragma once

#include <filesystem>

namespace zivora::soak {

// Whether a process's standard error holds a report of AddressSanitizer,
// LeakSanitizer, UndefinedBehaviorSanitizer or ThreadSanitizer.
class SanitizerReport {
 public:
  static bool foundIn(const std::filesystem::path& standardError);
};

}  // namespace zivora::soak
