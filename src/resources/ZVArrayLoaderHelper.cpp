#include "resources/ZVArrayLoaderHelper.h"

#include "resources/ZVResourceManager.h"
#include "util/Guard.h"
#include "util/ZVLog.h"

namespace zivora {
namespace {
constexpr char kClass[] = "ZVArrayLoaderHelper";
}

void ZVArrayLoaderHelper::addNewForLoad(const std::optional<std::string>& url, bool allowResume) {
  guarded(kClass, "addNewForLoad", [&] {
    if (!url) {
      ZVLog::LogDebug("[ZVArrayLoaderHelper][addNewForLoad] url is nil");
      return;
    }
    const std::string name = ZVResourceManager::convertURLToFileName(*url);
    auto manager = ZVResourceManager::defaultManager();
    if (manager && manager->isLoaded(name)) return;
    std::lock_guard lock(mutex_);
    wait_.push_back({.allowResume = allowResume, .fileName = name, .URL = *url});
  });
}

void ZVArrayLoaderHelper::startLoad() {
  guarded(kClass, "startLoad", [&] {
    std::vector<std::string> urls;
    std::vector<ZVDownloadFileInfo> empty;
    {
      std::lock_guard lock(mutex_);
      downloaded_.clear();
      for (const auto& info : wait_) urls.push_back(info.URL);
    }
    if (urls.empty()) {
      if (auto delegate = delegate_.lock()) delegate->finishLoadingResources(empty);
      return;
    }
    if (auto manager = ZVResourceManager::defaultManager())
      manager->loadURLs(urls, shared_from_this());
  });
}

bool ZVArrayLoaderHelper::isLoaded() {
  return guarded(kClass, "isLoaded", false, [&] {
    std::lock_guard lock(mutex_);
    return wait_.empty();
  });
}

void ZVArrayLoaderHelper::finishLoading(const std::string& fileName) {
  guarded(kClass, "finishLoading", [&] {
    std::vector<ZVDownloadFileInfo> downloaded;
    {
      std::lock_guard lock(mutex_);
      if (wait_.empty()) {
        ZVLog::LogDebug("Some Error");
        return;
      }
      for (auto it = wait_.rbegin(); it != wait_.rend(); ++it) {
        if (it->fileName == fileName) {
          wait_.erase(std::next(it).base());
          break;
        }
      }
      if (!wait_.empty()) return;
      downloaded = downloaded_;
    }
    if (auto delegate = delegate_.lock()) delegate->finishLoadingResources(downloaded);
  });
}

void ZVArrayLoaderHelper::errorLoadingResource(const std::string&, std::int32_t error) {
  guarded(kClass, "errorLoadingResource", [&] {
    if (auto delegate = delegate_.lock()) delegate->errorLoadingResourcesByHelper(error);
  });
}

}  // namespace zivora
