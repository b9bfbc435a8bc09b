#include "events/ZVEventController.h"

#include "events/ZVSendRequest.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

int postToAdServer(const std::string& event) {
  int result = TS_HTTP_ERROR;
  ZVSendRequest::sendPost(event, [&](const nlohmann::json*, int code) { result = code; });
  return result;
}

}  // namespace

ZVEventController::ZVEventController(std::shared_ptr<dispatch::Runtime> runtime,
                                     const std::filesystem::path& documentsDirectory,
                                     std::chrono::nanoseconds timeUnit,
                                     std::shared_ptr<platform::FileSystem> io)
    : saver_(documentsDirectory, std::move(io)),
      loop_(std::make_shared<ResendLoop>(std::move(runtime), saver_.file(),
                                         ResendLoopOptions{
                                             .queueLabel = kQueueLabel,
                                             .className = "ZVEventController",
                                             .report = GuardReport::Analytics,
                                             .waitsForServer = true,
                                             .timeUnit = timeUnit,
                                             .send = postToAdServer,
                                         })) {}

}  // namespace zivora
