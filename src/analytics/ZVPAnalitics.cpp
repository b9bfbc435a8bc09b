#include "analytics/ZVPAnalitics.h"

#include <fmt/format.h>

#include "analytics/ZVPDeviceInfoHelper.h"
#include "analytics/ZVPEventController.h"
#include "analytics/ZVPEventSender.h"
#include "analytics/ZVPLog.h"
#include "analytics/ZVPSessionManager.h"
#include "platform/dispatch/Runtime.h"
#include "platform/dispatch/WeakTask.h"
#include "sdk/Context.h"
#include "ui/Display.h"
#include "util/Guard.h"
#include "util/ZVLog.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

constexpr char kClass[] = "ZVPAnalitics";

template <class Body>
void backoffice(const char* method, Body&& body) {
  guarded(kClass, method, std::forward<Body>(body), GuardReport::Backoffice);
}

}  // namespace

// What appOpen() builds. Declared so that the session manager goes first
// on destruction, while the display whose lifecycle it observes still lives.
struct ZVPAnalitics::Parts {
  std::weak_ptr<Context> context;
  std::shared_ptr<ui::Display> display;
  std::shared_ptr<ZVPEventController> eventController;
  std::shared_ptr<ZVPDeviceInfoHelper> deviceInfoHelper;
  std::shared_ptr<ZVPEventSender> eventSender;
  std::shared_ptr<ZVPSessionManager> sessionManager;
};

std::atomic<bool> ZVPAnalitics::profilingEnabled_{false};

ZVPAnalitics::ZVPAnalitics() = default;

ZVPAnalitics::~ZVPAnalitics() = default;

ZVPAnalitics& ZVPAnalitics::shared() noexcept {
  static ZVPAnalitics detached;
  auto context = Context::current();
  // The context outlives every operation that runs under it: it is dropped
  // only after its queues have stopped.
  return context ? context->analytics() : detached;
}

void ZVPAnalitics::sendProfilingEnable(bool enable) noexcept { profilingEnabled_.store(enable); }

bool ZVPAnalitics::profilingEnabled() noexcept { return profilingEnabled_.load(); }

void ZVPAnalitics::appOpen() noexcept {
  if (!profilingEnabled()) return;
  backoffice("appOpen", [&] {
    auto context = Context::current();
    if (!context || !context->hasRuntime()) return;
    if (initialized_.exchange(true)) {
      ZVLog::system("[ZVPAnalitics][appOpen] Error: already invoked appOpen");
      return;
    }
    auto parts = std::make_shared<Parts>();
    parts->context = context;
    const auto& runtime = context->runtimeOptions();
    // Made here rather than on the queue so that onOwnQueue() can tell its
    // queue from the first moment on.
    parts->eventController = std::make_shared<ZVPEventController>(
        runtime.runtime, context->paths().documentsDirectory(), runtime.retryTimeUnit);
    auto serial = context->runtime().makeSerialQueue(kQueueLabel);
    {
      std::lock_guard lock(mutex_);
      serial_ = serial;
      parts_ = parts;
    }
    dispatch::asyncWeak(
        *serial, std::weak_ptr<Parts>(parts), {kClass, "appOpenDispatch", GuardReport::Backoffice},
        [](Parts& parts) {
          auto context = parts.context.lock();
          if (!context) return;
          parts.deviceInfoHelper =
              std::make_shared<ZVPDeviceInfoHelper>(kAppId, std::optional<std::string>());
          parts.eventSender =
              std::make_shared<ZVPEventSender>(parts.deviceInfoHelper, parts.eventController);
          parts.display = ui::Display::of(context);
          // Shares the display's ownership, pointing at its lifecycle.
          std::shared_ptr<ui::AppLifecycle> lifecycle(parts.display, &parts.display->lifecycle());
          parts.sessionManager = std::make_shared<ZVPSessionManager>(context, lifecycle);
          parts.eventSender->sendAppOpen();
          parts.sessionManager->appOpen();
        });
  });
}

template <class Body>
void ZVPAnalitics::onSerial(const char* method, Body body) {
  if (!initialized_.load()) return;
  std::shared_ptr<dispatch::Queue> serial;
  std::shared_ptr<Parts> parts;
  {
    std::lock_guard lock(mutex_);
    serial = serial_;
    parts = parts_;
  }
  if (!serial) return;
  // Held weakly: queued records must not keep the module alive.
  dispatch::asyncWeak(*serial, std::weak_ptr<Parts>(parts),
                      {kClass, method, GuardReport::Backoffice},
                      [body = std::move(body)](Parts& held) mutable {
                        if (held.eventSender) body(held);
                      });
}

bool ZVPAnalitics::onOwnQueue() const {
  std::lock_guard lock(mutex_);
  return (serial_ && serial_->isCurrent()) || (parts_ && parts_->eventController->onQueue());
}

void ZVPAnalitics::sendException(const ZVException& exception, std::string_view className,
                                 std::string_view method) noexcept {
  if (!profilingEnabled()) return;
  backoffice("sendException", [&] {
    ZVLog::system(fmt::format("[Zivora][{}][{}] Error! {}", className, method, exception.reason()));
    if (onOwnQueue()) return;
    ZVPCustomParams params;
    params.put(TSP_CLASS_NAME, std::string(className));
    params.put(TSP_METHOD_NAME, std::string(method));
    params.put(TSP_EXCEPTION_NAME, exception.name());
    params.put(TSP_EXCEPTION_REASON, exception.reason());
    sendEvent(TSP_EXCEPTION_EVENT, std::move(params));
  });
}

void ZVPAnalitics::sendInvokeDelegate(std::string_view) noexcept {}

void ZVPAnalitics::sendEvent(std::string_view eventName, ZVPCustomParams params) noexcept {
  backoffice("sendEvent", [&] {
    onSerial("sendEvent", [eventName = std::string(eventName),
                           params = std::move(params)](Parts& parts) mutable {
      parts.eventSender->sendEvent(eventName, std::move(params));
    });
  });
}

void ZVPAnalitics::sendEvent(std::string_view eventName) noexcept {
  sendEvent(eventName, ZVPCustomParams());
}

void ZVPAnalitics::sendEvent(std::string_view eventName, std::string_view className,
                             std::string_view method, std::string_view message) noexcept {
  if (!profilingEnabled()) return;
  backoffice("sendEvent", [&] {
    ZVPCustomParams params;
    params.put(TSP_CLASS_NAME, std::string(className));
    params.put(TSP_METHOD_NAME, std::string(method));
    params.put(TSP_MESSAGE, std::string(message));
    sendEvent(eventName, std::move(params));
  });
}

void ZVPAnalitics::sendPurchase(double amount, std::optional<std::string> currency,
                                std::optional<std::string> productId,
                                std::optional<std::string> transactionId) noexcept {
  backoffice("sendPurchase", [&] {
    onSerial("sendPurchase", [=](Parts& parts) {
      if (transactionId) {
        parts.eventSender->sendPurchase(amount, currency, productId, transactionId);
      } else {
        parts.eventSender->sendPurchase(amount, currency, productId);
      }
    });
  });
}

void ZVPAnalitics::sendUpdateSetting() noexcept {
  backoffice("sendUpdateSetting", [&] {
    onSerial("sendUpdateSetting", [](Parts& parts) { parts.eventSender->sendUpdateSetting(); });
  });
}

void ZVPAnalitics::logEnable(bool enable) noexcept {
  backoffice("logEnable", [&] { ZVPLog::logEnable(enable); });
}

}  // namespace zivora
