#include "util/Guard.h"

#include <fmt/format.h>

#include <exception>

#include "util/Upcalls.h"
#include "util/ZVException.h"
#include "util/ZVLog.h"

namespace zivora::detail {

void reportCaught(const char* className, const char* method, GuardReport report) noexcept {
  try {
    if (report == GuardReport::Backoffice) {
      ZVLog::system(fmt::format("Backoffice [{}][{}] Error!", className, method));
      return;
    }
    upcalls::reporter().sendException(ZVException::describe(std::current_exception()), className,
                                      method);
  } catch (...) {
    // A failing reporter must not turn a caught exception into a crash.
  }
}

}  // namespace zivora::detail
