#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "analytics/ZVPCustomParams.h"
#include "util/Upcalls.h"
#include "util/ZVException.h"

namespace zivora {

class Context;
class ZVPDeviceInfoHelper;
class ZVPEventController;
class ZVPEventSender;
class ZVPSessionManager;
namespace dispatch {
class Queue;
}
namespace ui {
class Display;
}

// The analytics module's entry point. Every class of the ad side reports
// its caught exceptions and notable conditions here; both reports do
// nothing while profiling is switched off. Callers come from any thread:
// records are built in call order on "com.zivora.profiling" and queued in
// "tsp_events_profiling.dat" for the analytics endpoint.
//
// The analytics classes never report to this facade (their failures are
// "Backoffice" lines in the system log); a report raised while one of the
// module's own queues is working is written to the log and not recorded,
// so a failure cannot feed on itself.
class ZVPAnalitics : public Reporter {
 public:
  // Records carry this application id whatever host links the SDK.
  static constexpr char kAppId[] = "tessaro-profiling";
  static constexpr char kQueueLabel[] = "com.zivora.profiling";

  ZVPAnalitics();
  ~ZVPAnalitics() override;
  ZVPAnalitics(const ZVPAnalitics&) = delete;
  ZVPAnalitics& operator=(const ZVPAnalitics&) = delete;

  // The installed context's instance; a do-nothing instance before
  // initialisation, never null.
  static ZVPAnalitics& shared() noexcept;

  // The process-wide profiling switch, off at start.
  static void sendProfilingEnable(bool enable) noexcept;
  static bool profilingEnabled() noexcept;

  // Writes "[Zivora][class][method] Error! reason" to the system log and
  // records an "Exception" event.
  void sendException(const ZVException& exception, std::string_view className,
                     std::string_view method) noexcept override;

  // Opens the module for the installed context: the delivery queue, the
  // "AppOpen" record and the session measurement. Once per instance, and
  // only while profiling is on.
  virtual void appOpen() noexcept;

  // Told of every host callback the SDK makes; accepted and ignored.
  void sendInvokeDelegate(std::string_view shortName) noexcept override;

  // Records the event `eventName` with the caller's parameters (a finished
  // session, a purchase ...). Dropped until appOpen() has run.
  virtual void sendEvent(std::string_view eventName, ZVPCustomParams params) noexcept;
  void sendEvent(std::string_view eventName) noexcept;

  // Records a diagnostic event of kind `eventName` ("info", "error" ...)
  // with the class, method and message as parameters.
  void sendEvent(std::string_view eventName, std::string_view className, std::string_view method,
                 std::string_view message) noexcept override;

  // A purchase record (amount, currency, product and, when given, the
  // transaction) for hosts that report their store's purchases.
  void sendPurchase(double amount, std::optional<std::string> currency,
                    std::optional<std::string> productId,
                    std::optional<std::string> transactionId = std::nullopt) noexcept;
  // An "UpdateSetting" record when the game user id has changed since the
  // last record.
  void sendUpdateSetting() noexcept;

  // The analytics log switch.
  void logEnable(bool enable) noexcept;

  bool initialized() const noexcept { return initialized_.load(); }

 private:
  friend class ZVPAnaliticsTestPeer;

  struct Parts;

  // Runs `body` with the module's parts on its queue; nothing before
  // appOpen().
  template <class Body>
  void onSerial(const char* method, Body body);
  bool onOwnQueue() const;
  void openDispatch(const std::shared_ptr<Context>& context);

  static std::atomic<bool> profilingEnabled_;

  std::atomic<bool> initialized_{false};
  mutable std::mutex mutex_;
  std::shared_ptr<dispatch::Queue> serial_;
  // Built on appOpen() and then used on serial_ only.
  std::shared_ptr<Parts> parts_;
};

}  // namespace zivora
