#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "eventqueue/EventFile.h"

namespace zivora {

// What both queues' savers offer over their event file: each saver only
// names its file and its log texts.
class EventFileSaver {
 public:
  explicit EventFileSaver(EventFileOptions options)
      : file_(std::make_shared<EventFile>(std::move(options))) {}

  // True when the event is durably on disk.
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
