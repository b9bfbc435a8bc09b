#pragma once

#include <chrono>
#include <memory>
#include <string_view>

namespace zivora {

class LogSink;
class ZVException;

// What code below the analytics module reports: a caught exception, a
// diagnostic event, a call made to the host. The analytics facade is the
// implementation; helpers see only this interface.
class Reporter {
 public:
  virtual ~Reporter() = default;
  virtual void sendException(const ZVException& exception, std::string_view className,
                             std::string_view method) noexcept = 0;
  virtual void sendEvent(std::string_view eventName, std::string_view className,
                         std::string_view method, std::string_view message) noexcept = 0;
  virtual void sendInvokeDelegate(std::string_view shortName) noexcept = 0;
};

// What the helpers ask of the floors above them. They are declared here and
// defined by the floor that knows the answer, so that a helper never
// includes a header from above.
namespace upcalls {

// The installed context's reporter, or one that drops every report; never
// fails. Defined by the top-level wiring, which knows the analytics module.
Reporter& reporter() noexcept;

// Where a log line goes now (see Context::currentLog); null drops it.
// Defined by the SDK base.
std::shared_ptr<LogSink> logSink();

// The wall clock of the installed context's runtime, which tests drive;
// the system's without one. Defined by the SDK base.
std::chrono::system_clock::time_point wallNow();

}  // namespace upcalls

}  // namespace zivora
