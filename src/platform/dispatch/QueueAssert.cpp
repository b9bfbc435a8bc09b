#include "platform/dispatch/QueueAssert.h"

#include <cstdlib>

#include "util/ZVLog.h"

namespace zivora::dispatch {

void assertOn(const Queue& queue, const char* expression, const char* file, int line) noexcept {
  if (queue.isCurrent()) return;
  ZVLog::LogWarning("[Queue][assertOn] {} ({}) is not the current queue at {}:{}", expression,
                    queue.label(), file, line);
#ifndef NDEBUG
  std::abort();
#endif
}

}  // namespace zivora::dispatch
