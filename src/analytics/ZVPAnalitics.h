#pragma once

#include <atomic>
#include <memory>
#include <string_view>

#include "analytics/ZVPCustomParams.h"
#include "util/ZVException.h"

namespace zivora {

// The analytics module's entry point. Every class of the ad side reports
// its caught exceptions and notable conditions here; both reports do
// nothing while profiling is switched off.
class ZVPAnalitics {
 public:
  virtual ~ZVPAnalitics() = default;

  // The installed context's instance; a do-nothing instance before
  // initialisation, never null.
  static ZVPAnalitics& shared() noexcept;

  // The process-wide profiling switch, off at start.
  static void sendProfilingEnable(bool enable) noexcept;
  static bool profilingEnabled() noexcept;

  // Writes "[Zivora][class][method] Error! reason" to the system log and
  // records an "Exception" event.
  virtual void sendException(const ZVException& exception, std::string_view className,
                             std::string_view method) noexcept;

  // Records the application's start; the SDK calls it once at start-up.
  virtual void appOpen() noexcept;

  // Told of every host callback the SDK makes; accepted and ignored.
  virtual void sendInvokeDelegate(std::string_view shortName) noexcept;

  // Records the event `eventName` with the caller's parameters (a finished
  // session, a purchase ...). Dropped until the delivery queue is opened.
  virtual void sendEvent(std::string_view eventName, ZVPCustomParams params) noexcept;

  // Records a diagnostic event of kind `eventName` ("info" or "error").
  virtual void sendEvent(std::string_view eventName, std::string_view className,
                         std::string_view method, std::string_view message) noexcept;

 private:
  static std::atomic<bool> profilingEnabled_;
};

}  // namespace zivora
