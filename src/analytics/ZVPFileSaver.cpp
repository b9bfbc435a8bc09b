#include "analytics/ZVPFileSaver.h"

#include <fmt/format.h>

#include "analytics/ZVPLog.h"
#include "util/ZVLog.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

EventFileOptions analyticsEventFile(const std::filesystem::path& documentsDirectory,
                                    std::shared_ptr<platform::FileSystem> io) {
  return {
      .path = documentsDirectory / ZVPFileSaver::kFileName,
      .maxSize = TS_MAX_EVENT_FILE_SIZE,
      .logSaved =
          [](std::string_view event) {
            ZVPLog::LogDebug("[ZVPFileSaver][save] event = {}", event);
          },
      .logError =
          [](std::string_view operation, std::string_view) {
            // The analytics texts name the operation without its colon.
            if (!operation.empty() && operation.back() == ':') operation.remove_suffix(1);
            ZVLog::system(fmt::format("Backoffice [ZVPFileSaver][{}] Error!", operation));
          },
      .logRepair =
          [](std::string_view message) {
            ZVPLog::LogWarning("[ZVPFileSaver][repair] {}", message);
          },
      .io = std::move(io),
  };
}

}  // namespace

ZVPFileSaver::ZVPFileSaver(const std::filesystem::path& documentsDirectory,
                           std::shared_ptr<platform::FileSystem> io)
    : EventFileSaver(analyticsEventFile(documentsDirectory, std::move(io))) {}

}  // namespace zivora
