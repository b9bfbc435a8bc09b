#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace zivora {

namespace platform {
class UserDefaults;
}

// The persistent record of completed cache files: one key per file name in
// the suite "com.zivora.loadedFiles", holding the file's full size. A file
// counts as complete only while its size on disk still equals that size.
// A download's completion is recorded through the sync queue
// (`setFullLoadedWhenSynced`): complete in memory at once, in the suite
// once the file's data is durable.
class ZVFilesSavedValidator {
 public:
  // The context's instance; null before a context is installed.
  static std::shared_ptr<ZVFilesSavedValidator> defaultValidator();

  // The suite, opened on every call; null when the store is absent.
  std::shared_ptr<platform::UserDefaults> userSettings();
  void setFullLoaded(const std::string& fileName, std::int64_t size);
  // For a download whose data sync has been handed to the sync queue.
  void setFullLoadedWhenSynced(const std::string& fileName, std::int64_t size);
  // Drops the record when the size on disk no longer matches it.
  bool isLoaded(const std::string& fileName);
  void remove(const std::string& fileName);
};

}  // namespace zivora
