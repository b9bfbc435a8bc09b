#include "events/ZVFileSaver.h"

#include "analytics/ZVPLog.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

EventFileOptions adEventFile(const std::filesystem::path& documentsDirectory,
                             std::shared_ptr<platform::FileSystem> io) {
  return {
      .path = documentsDirectory / ZVFileSaver::kFileName,
      .maxSize = TS_MAX_EVENT_FILE_SIZE,
      .logSaved =
          [](std::string_view event) {
            ZVPLog::LogDebug("[ZVPFileSaver][save] event = {}", event);
          },
      .logError =
          [](std::string_view operation, std::string_view reason) {
            // This one operation's text has always spelled "error" in lower case.
            if (operation == "removeFirstLine")
              ZVPLog::LogWarning("[ZVPFileSaver][removeFirstLine] error = {}", reason);
            else
              ZVPLog::LogWarning("[ZVPFileSaver][{}] Error = {}", operation, reason);
          },
      .logRepair =
          [](std::string_view message) {
            ZVPLog::LogWarning("[ZVPFileSaver][repair] {}", message);
          },
      .io = std::move(io),
  };
}

}  // namespace

ZVFileSaver::ZVFileSaver(const std::filesystem::path& documentsDirectory,
                         std::shared_ptr<platform::FileSystem> io)
    : EventFileSaver(adEventFile(documentsDirectory, std::move(io))) {}

}  // namespace zivora
