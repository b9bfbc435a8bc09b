#include "resources/ZVFilesSavedValidator.h"

#include "platform/FileSystem.h"
#include "platform/UserDefaults.h"
#include "resources/ZVFileSyncQueue.h"
#include "resources/ZVResourceManager.h"
#include "sdk/Context.h"
#include "util/Guard.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

constexpr char kClass[] = "ZVFilesSavedValidator";

// 0 when the file is missing, as an unreadable size counts; a link in the
// file's place is not the file, whatever the size of what it points to.
std::int64_t sizeOnDisk(const std::string& path) {
  platform::FileStatus status;
  return ZVResourceManager::fileSystem()->status(path.c_str(), status) == 0 && status.regular
             ? status.size
             : 0;
}

}  // namespace

std::shared_ptr<ZVFilesSavedValidator> ZVFilesSavedValidator::defaultValidator() {
  auto context = Context::current();
  if (!context) return nullptr;
  return context->instance<ZVFilesSavedValidator>(
      [] { return std::make_shared<ZVFilesSavedValidator>(); });
}

std::shared_ptr<platform::UserDefaults> ZVFilesSavedValidator::userSettings() {
  return guarded(kClass, "userSettings", std::shared_ptr<platform::UserDefaults>(), [] {
    auto context = Context::current();
    return context ? context->userDefaults(TS_USER_SETTINGS_SUITE_NAME) : nullptr;
  });
}

void ZVFilesSavedValidator::setFullLoaded(const std::string& fileName, std::int64_t size) {
  guarded(kClass, "setFullLoaded", [&] {
    if (auto settings = userSettings()) settings->setValue(fileName, size);
  });
}

void ZVFilesSavedValidator::setFullLoadedWhenSynced(const std::string& fileName,
                                                    std::int64_t size) {
  guarded(kClass, "setFullLoaded", [&] {
    auto syncs = ZVFileSyncQueue::defaultQueue();
    if (!syncs) return setFullLoaded(fileName, size);
    syncs->recordComplete(fileName, size, userSettings());
  });
}

bool ZVFilesSavedValidator::isLoaded(const std::string& fileName) {
  return guarded(kClass, "isLoaded", false, [&] {
    auto manager = ZVResourceManager::defaultManager();
    if (!manager || fileName.empty()) return false;
    auto syncs = ZVFileSyncQueue::defaultQueue();
    if (auto pending = syncs ? syncs->pendingSize(fileName) : std::nullopt) {
      const bool loaded = *pending > 0 && *pending == sizeOnDisk(manager->pathToFile(fileName));
      if (!loaded) remove(fileName);
      return loaded;
    }
    auto settings = userSettings();
    if (!settings) return false;
    const auto saved = settings->integerForKey(fileName);
    if (!saved) return false;
    const std::int64_t disk = sizeOnDisk(manager->pathToFile(fileName));
    if (*saved != disk) settings->removeObjectForKey(fileName);
    return *saved > 0 && *saved == disk;
  });
}

void ZVFilesSavedValidator::remove(const std::string& fileName) {
  guarded(kClass, "remove", [&] {
    auto removeRecord = [&] {
      if (auto settings = userSettings()) settings->removeObjectForKey(fileName);
    };
    if (auto syncs = ZVFileSyncQueue::defaultQueue()) {
      syncs->forget(fileName, removeRecord);
    } else {
      removeRecord();
    }
  });
}

}  // namespace zivora
