#include "resources/ZVCacheManager.h"

#include <errno.h>

#include <algorithm>
#include <vector>

#include "platform/FileSystem.h"
#include "resources/ZVReserveManager.h"
#include "resources/ZVResourceManager.h"
#include "sdk/Context.h"
#include "util/Guard.h"
#include "util/ZVLog.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {
constexpr char kClass[] = "ZVCacheManager";
}

std::shared_ptr<ZVCacheManager> ZVCacheManager::defaultManager() {
  auto context = Context::current();
  if (!context) return nullptr;
  return context->instance<ZVCacheManager>([] { return std::make_shared<ZVCacheManager>(); });
}

ZVCacheManager::ZVCacheManager() { initialize(); }

void ZVCacheManager::initialize() {
  guarded(kClass, "initialize", [&] {
    auto context = Context::current();
    if (!context) return;
    const std::string directory = context->paths().cacheDirectory().string();
    const auto names = context->files().regularFiles(directory.c_str());
    for (const auto& name : names) updateInformationOfFile(name);
  });
}

void ZVCacheManager::updateInformationOfFile(const std::string& fileName) {
  guarded(kClass, "updateInformationOfFile", [&] {
    auto manager = ZVResourceManager::defaultManager();
    if (!manager) return;
    const std::string path = manager->pathToFile(fileName);
    platform::FileStatus info;
    const bool stated = ZVResourceManager::fileSystem()->status(path.c_str(), info) == 0;
    // Anything but a regular file under the name is not a cache file.
    const bool found = stated && info.regular;
    const bool missing = stated ? !found : errno == ENOENT;
    std::lock_guard lock(mutex_);
    if (!found) {
      if (!missing) {
        ZVLog::LogWarning(
            "[ZVCacheManager][updateInformationOfFile] Warning! Can't get info about file: {}",
            fileName);
      }
      files_.erase(fileName);
      return;
    }
    ZVCacheFile& file = files_[fileName];
    file.setSize(info.size);
    file.setTimeCreated(static_cast<std::int32_t>(info.modified));
    file.setFileName(fileName);
  });
}

void ZVCacheManager::removeFile(const std::string& fileName) {
  guarded(kClass, "removeFile", [&] {
    std::lock_guard lock(mutex_);
    files_.erase(fileName);
  });
}

std::int64_t ZVCacheManager::usedSpace() {
  std::int64_t used = 0;
  guarded(kClass, "usedSpace", [&] {
    std::lock_guard lock(mutex_);
    for (const auto& [name, file] : files_) used += file.size();
  });
  return used;
}

void ZVCacheManager::needSpace(std::int64_t bytes) {
  guarded(kClass, "needSpace", [&] {
    std::int64_t excess = usedSpace() + bytes - TS_MAX_CACHE_SIZE;
    if (excess < 1) return;
    std::vector<ZVCacheFile> entries;
    {
      std::lock_guard lock(mutex_);
      for (const auto& [name, file] : files_) entries.push_back(file);
    }
    // Newest first, walked from the end: the oldest goes first.
    std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) {
      return a.timeCreated() > b.timeCreated();
    });
    auto reserve = ZVReserveManager::defaultManager();
    auto manager = ZVResourceManager::defaultManager();
    for (auto it = entries.rbegin(); it != entries.rend() && excess >= 1; ++it) {
      if (reserve && reserve->isReserved(it->fileName())) continue;
      excess -= it->size();
      if (manager) manager->removeFile(it->fileName());
    }
  });
}

}  // namespace zivora
