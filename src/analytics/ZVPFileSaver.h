#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "events/EventFile.h"

namespace zivora {

// The analytics records' file, "tsp_events_profiling.dat" in the documents
// directory. Same format and rules as the ad events' file; its failures are
// written as "Backoffice [ZVPFileSaver][<operation>] Error!" and never
// reported to analytics.
class ZVPFileSaver {
 public:
  static constexpr char kFileName[] = "tsp_events_profiling.dat";

  explicit ZVPFileSaver(const std::filesystem::path& documentsDirectory,
                        std::shared_ptr<platform::FileIo> io = nullptr);

  // True when the record is durably on disk.
  bool save(std::string_view event) noexcept { return file_->save(event); }
  std::optional<std::string> getFirstEvent() noexcept { return file_->firstEvent(); }
  bool hasSavedEvents() noexcept { return file_->hasSavedEvents(); }
  void removeFirstLine() noexcept { file_->removeFirstLine(); }
  void removeFile() noexcept { file_->removeFile(); }

  const std::filesystem::path& fullPath() const { return file_->path(); }
  const std::shared_ptr<EventFile>& file() const { return file_; }

 private:
  std::shared_ptr<EventFile> file_;
};

}  // namespace zivora
