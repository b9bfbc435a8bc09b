#include "analytics/ZVPAnalitics.h"

#include <fmt/format.h>

#include "core/Context.h"
#include "util/ZVLog.h"

namespace zivora {

std::atomic<bool> ZVPAnalitics::profilingEnabled_{false};

ZVPAnalitics& ZVPAnalitics::shared() noexcept {
  static ZVPAnalitics detached;
  auto context = Context::current();
  // The context outlives every operation that runs under it: it is dropped
  // only after its queues have stopped.
  return context ? context->analytics() : detached;
}

void ZVPAnalitics::sendProfilingEnable(bool enable) noexcept { profilingEnabled_.store(enable); }

bool ZVPAnalitics::profilingEnabled() noexcept { return profilingEnabled_.load(); }

void ZVPAnalitics::sendException(const ZVException& exception, std::string_view className,
                                 std::string_view method) noexcept {
  if (!profilingEnabled()) return;
  try {
    ZVLog::system(fmt::format("[Zivora][{}][{}] Error! {}", className, method, exception.reason()));
  } catch (...) {
  }
}

void ZVPAnalitics::appOpen() noexcept {}

void ZVPAnalitics::sendInvokeDelegate(std::string_view) noexcept {}

void ZVPAnalitics::sendEvent(std::string_view, std::string_view, std::string_view,
                             std::string_view) noexcept {}

void ZVPAnalitics::sendEvent(std::string_view, ZVPCustomParams) noexcept {}

}  // namespace zivora
