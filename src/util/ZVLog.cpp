#include "util/ZVLog.h"

#include "util/LogSink.h"
#include "util/Upcalls.h"

namespace zivora {

std::atomic<bool> WARNING_L0G_ENABLED{true};
std::atomic<bool> DEBUG_L0G_ENABLED{true};

namespace {

void writeLine(LogLevel level, std::string_view text) {
  if (auto sink = upcalls::logSink()) sink->write(level, text);
}

}  // namespace

void ZVLog::emit(LogLevel level, std::string_view text) { writeLine(level, text); }

void ZVLog::system(std::string_view text) noexcept {
  try {
    writeLine(LogLevel::System, text);
  } catch (...) {
    // Nowhere left to report a failing log sink.
  }
}

void ZVLog::logEnable(bool enable) noexcept { DEBUG_L0G_ENABLED.store(enable); }

}  // namespace zivora
