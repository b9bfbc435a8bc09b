#include "analytics/ZVPEventController.h"

#include "analytics/ZVPConvertSavedEventForSend.h"
#include "analytics/ZVPCustomParams.h"
#include "analytics/ZVPHttpRequest.h"
#include "analytics/ZVPLog.h"
#include "util/Guard.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

constexpr char kClass[] = "ZVPEventController";

int postToAnalytics(const std::string& line) {
  long result = TS_HTTP_ERROR;
  ZVPHttpRequest::sendPost(line, [&](const std::string*, long code) { result = code; });
  return static_cast<int>(result);
}

// A line without a wire form: it fails to parse or names no application.
bool cannotConvert(const std::string& line) {
  ZVPConvertSavedEventForSend converted(line, 0);
  if (!converted.isError() && converted.getEvent()) return false;
  ZVPLog::LogWarning(
      "[ZVPEventController][trySendEventDispatch] Discarded a record that cannot "
      "be converted: {}",
      line);
  return true;
}

}  // namespace

ZVPEventController::ZVPEventController(std::shared_ptr<dispatch::Runtime> runtime,
                                       const std::filesystem::path& documentsDirectory,
                                       std::chrono::nanoseconds timeUnit,
                                       std::shared_ptr<platform::FileSystem> io)
    : saver_(documentsDirectory, std::move(io)),
      loop_(std::make_shared<ResendLoop>(std::move(runtime), saver_.file(),
                                         ResendLoopOptions{
                                             .queueLabel = kQueueLabel,
                                             .className = kClass,
                                             .report = GuardReport::Backoffice,
                                             .waitsForServer = false,
                                             .timeUnit = timeUnit,
                                             .send = postToAnalytics,
                                             .undeliverable = cannotConvert,
                                         })) {}

bool ZVPEventController::sendEvent(const ZVPCustomParams& record) noexcept {
  return guarded(
      kClass, "sendEvent", false,
      [&] {
        auto line = record.toStr();
        return line && !line->empty() && loop_->sendEvent(*line);
      },
      GuardReport::Backoffice);
}

}  // namespace zivora
