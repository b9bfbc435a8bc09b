#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "resources/ZVCacheFile.h"

namespace zivora {

// Keeps the cache directory within TS_MAX_CACHE_SIZE: a table of its files
// (size and time of last write), rebuilt from the directory at start, and
// eviction of the oldest unreserved files before new bytes are written.
// Called from the download queue and the main queue: one mutex guards the
// table, and it is released before a file is removed.
class ZVCacheManager {
 public:
  static std::shared_ptr<ZVCacheManager> defaultManager();

  ZVCacheManager();

  // Enters every visible regular file of the cache directory.
  void initialize();
  void updateInformationOfFile(const std::string& fileName);
  // Drops the entry; the file itself is deleted by the resource manager.
  void removeFile(const std::string& fileName);
  std::int64_t usedSpace();
  // Evicts the oldest unreserved files until `bytes` more fit in the budget;
  // proceeds over budget when nothing more may go.
  void needSpace(std::int64_t bytes);

 private:
  std::mutex mutex_;
  std::map<std::string, ZVCacheFile> files_;
};

}  // namespace zivora
