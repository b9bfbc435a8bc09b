#include "resources/ZVResourceManager.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <cctype>
#include <filesystem>

#include "platform/FileSystem.h"
#include "platform/dispatch/QueueAssert.h"
#include "platform/dispatch/Runtime.h"
#include "platform/dispatch/WeakTask.h"
#include "resources/ZVAssetLoaderDelegate.h"
#include "resources/ZVCacheManager.h"
#include "resources/ZVFilesSavedValidator.h"
#include "resources/ZVResourceLoader.h"
#include "sdk/Context.h"
#include "util/Guard.h"
#include "util/ZVHash.h"
#include "util/ZVLog.h"
#include "zivora/ZVConstants.h"

namespace zivora {

namespace {

constexpr char kClass[] = "ZVResourceManager";
constexpr std::size_t kMaxExtensionLength = 16;
// An unreadable file system counts as having room; a failure while asking
// counts as having none. The two differ on purpose.
constexpr std::uint64_t kUnknownFreeSpace = 314572800;

// The text after the last '.' of the last path component, as a path
// extension is read; empty when there is none.
std::string_view pathExtension(std::string_view url) {
  auto slash = url.find_last_of('/');
  std::string_view component = slash == std::string_view::npos ? url : url.substr(slash + 1);
  auto dot = component.find_last_of('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  return component.substr(dot + 1);
}

std::string sanitized(std::string_view extension) {
  extension = extension.substr(0, extension.find('?'));
  std::string kept;
  for (char c : extension) {
    if (kept.size() == kMaxExtensionLength) break;
    if (std::isalnum(static_cast<unsigned char>(c))) kept.push_back(c);
  }
  return kept;
}

// A server-supplied name may only ever name a file directly in the cache.
bool isSinglePathComponent(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

// Unlinks `name` inside `directory` only when it is a regular file; a
// symlink is never followed and a directory never removed.
bool removeRegularFile(const std::string& directory, const std::string& name) {
  if (!isSinglePathComponent(name)) return false;
  return ZVResourceManager::fileSystem()->removeRegularFile(directory.c_str(), name.c_str()) == 0;
}

void notifyLoaded(const std::shared_ptr<ZVDownloadDelegate>& delegate, const std::string& name) {
  if (delegate) delegate->finishLoading(name);
}

}  // namespace

std::string ZVResourceManager::convertURLToFileName(std::string_view url) noexcept {
  return guarded(kClass, "convertURLToFileName", std::string(),
                 [&] { return ZVHash::md5Hex(url) + "." + sanitized(pathExtension(url)); });
}

std::shared_ptr<platform::FileSystem> ZVResourceManager::fileSystem() {
  auto context = Context::current();
  if (context && context->runtimeOptions().files) return context->runtimeOptions().files;
  return platform::FileSystem::posix();
}

std::shared_ptr<ZVResourceManager> ZVResourceManager::defaultManager() {
  auto context = Context::current();
  if (!context || !context->hasRuntime()) return nullptr;
  return context->instance<ZVResourceManager>([] {
    auto manager = std::make_shared<ZVResourceManager>();
    manager->init();
    return manager;
  });
}

ZVResourceManager::ZVResourceManager() = default;

ZVResourceManager::~ZVResourceManager() = default;

void ZVResourceManager::init() {
  guarded(kClass, "init", [&] {
    auto context = Context::current();
    serialQueue_ = context->runtime().makeSerialQueue("com.zivora.resources");
    loader_ = std::make_shared<ZVResourceLoader>();
    loader_->setDelegate(shared_from_this());
    cacheFolder_ = context->paths().cacheDirectory().string();
    std::error_code error;
    // Free space is measured there.
    std::filesystem::create_directories(context->paths().documentsDirectory(), error);
    if (!std::filesystem::exists(cacheFolder_, error)) {
      ZVLog::system("Create cache directory");
      std::filesystem::create_directories(cacheFolder_, error);
      if (error) ZVLog::LogWarning("[ZVResourceManager][init] Can't create cache directory");
    }
  });
}

std::string ZVResourceManager::pathToCacheDirectory() { return cacheFolder_; }

std::string ZVResourceManager::pathToFile(const std::string& fileName) {
  return guarded(kClass, "pathToFile", std::string(),
                 [&] { return (std::filesystem::path(cacheFolder_) / fileName).string(); });
}

std::string ZVResourceManager::pathToFileFromURL(const std::string& url) {
  return guarded(kClass, "pathToFileFromURL", std::string(),
                 [&] { return pathToFile(convertURLToFileName(url)); });
}

void ZVResourceManager::loadURL(const std::string& url,
                                const std::shared_ptr<ZVDownloadDelegate>& delegate) {
  guarded(kClass, "loadURLWithDelegate",
          [&] { loadURL(url, convertURLToFileName(url), delegate); });
}

void ZVResourceManager::loadURL(const std::string& url, const std::string& fileName,
                                const std::shared_ptr<ZVDownloadDelegate>& delegate) {
  guarded(kClass, "loadURLWithFileName", [&] {
    addInWaitingArray(url, fileName, delegate);
    tryDownloadNextFile();
  });
}

void ZVResourceManager::loadURLs(const std::vector<std::string>& urls,
                                 const std::shared_ptr<ZVDownloadDelegate>& delegate) {
  guarded(kClass, "loadURLs", [&] {
    for (const auto& url : urls) addInWaitingArray(url, convertURLToFileName(url), delegate);
    tryDownloadNextFile();
  });
}

void ZVResourceManager::addInWaitingArray(const std::string& url, const std::string& fileName,
                                          const std::shared_ptr<ZVDownloadDelegate>& delegate) {
  guarded(kClass, "addInWaitingArray", [&] {
    if (isLoaded(fileName)) {
      notifyLoaded(delegate, fileName);
      return;
    }
    auto info = std::make_shared<ZVFileInfoStatus>(fileName, pathToFile(fileName), url);
    auto entity = std::make_shared<ZVFileStatusEntity>(std::move(info), delegate);
    std::lock_guard lock(mutex_);
    files_.try_emplace(fileName, entity);
    waiting_.push_back(std::move(entity));
  });
}

void ZVResourceManager::tryDownloadNextFile() {
  guarded(kClass, "tryDownloadNextFile", [&] {
    if (!serialQueue_) return;
    dispatch::asyncWeak(*serialQueue_, weak_from_this(), {kClass, "tryDownloadNextFileDispatch"},
                        [](ZVResourceManager& self) { self.pumpQueue(); });
  });
}

void ZVResourceManager::pumpQueue() {
  ZV_ASSERT_ON(serialQueue_);
  for (;;) {
    std::shared_ptr<ZVFileStatusEntity> first;
    {
      std::lock_guard lock(mutex_);
      if (waiting_.empty()) return;
      first = waiting_.front();
    }
    if (loader_->isBusy()) return;
    const std::string name = first->infoStatus()->fileName();
    if (isLoaded(name)) {
      {
        std::lock_guard lock(mutex_);
        if (!waiting_.empty() && waiting_.front() == first) waiting_.pop_front();
      }
      notifyLoaded(first->delegate(), name);
      continue;
    }
    {
      // The latest requester takes over the callbacks of the stored record.
      std::lock_guard lock(mutex_);
      if (auto stored = files_.find(name); stored != files_.end()) {
        stored->second->setDelegate(first->delegate());
      }
    }
    loader_->load(first);
    return;
  }
}

std::shared_ptr<ZVFileInfoStatus> ZVResourceManager::getLoadInfo(const std::string& fileName) {
  return guarded(kClass, "getLoadInfo", std::shared_ptr<ZVFileInfoStatus>(), [&] {
    std::lock_guard lock(mutex_);
    for (const auto& entity : waiting_) {
      if (entity->infoStatus()->fileName() == fileName) return entity->infoStatus();
    }
    auto stored = files_.find(fileName);
    return stored == files_.end() ? nullptr : stored->second->infoStatus();
  });
}

bool ZVResourceManager::existFile(const std::string& path) {
  return guarded(kClass, "existFile", false, [&] { return ::access(path.c_str(), F_OK) == 0; });
}

bool ZVResourceManager::existFileWithName(const std::string& fileName) {
  return guarded(kClass, "existFileWithName", false,
                 [&] { return existFile(pathToFile(fileName)); });
}

bool ZVResourceManager::containFile(const std::string& fileName) {
  return guarded(kClass, "containFile", false, [&] {
    std::lock_guard lock(mutex_);
    return files_.count(fileName) > 0;
  });
}

bool ZVResourceManager::isLoaded(const std::string& fileName) {
  return guarded(kClass, "isLoaded", false, [&] {
    auto validator = ZVFilesSavedValidator::defaultValidator();
    const bool loaded = validator && validator->isLoaded(fileName);
    if (!loaded) {
      std::lock_guard lock(mutex_);
      if (auto stored = files_.find(fileName); stored != files_.end()) {
        stored->second->infoStatus()->setIsReady(false);
      }
    }
    return loaded;
  });
}

bool ZVResourceManager::hasFreeSpace() {
  return guarded(kClass, "hasFreeSpace", false, [&] {
    return getFreeDiskspace() > static_cast<std::uint64_t>(TS_RESERVED_FREE_SPACE);
  });
}

std::uint64_t ZVResourceManager::getFreeDiskspace() {
  return guarded(
      kClass, "getFreeDiskspace", static_cast<std::uint64_t>(TS_RESERVED_FREE_SPACE), [&] {
        auto context = Context::current();
        const auto space = context->files().freeSpace(context->paths().documentsDirectory());
        if (space.ok) return space.bytes;
        ZVLog::system(
            fmt::format("[ZVResourceManager][getFreeDiskspace]Error Obtaining System Memory Info: "
                        "Domain = {}, Code = {}",
                        "POSIX", space.error));
        return kUnknownFreeSpace;
      });
}

std::int32_t ZVResourceManager::fileSize(const std::string& fileName) {
  return guarded(kClass, "fileSize", std::int32_t{0}, [&]() -> std::int32_t {
    if (isLoaded(fileName)) {
      platform::FileStatus status;
      if (fileSystem()->status(pathToFile(fileName).c_str(), status) != 0) return 0;
      return static_cast<std::int32_t>(std::min<std::int64_t>(status.size, INT32_MAX));
    }
    std::lock_guard lock(mutex_);
    for (const auto& entity : waiting_) {
      const auto& info = *entity->infoStatus();
      if (info.fileName() == fileName && info.fullSize() > 0) return info.fullSize();
    }
    auto stored = files_.find(fileName);
    return stored == files_.end() ? -1 : stored->second->infoStatus()->fullSize();
  });
}

ZVAsset ZVResourceManager::assetForFile(const std::string& fileName) {
  return guarded(kClass, "assetForFile", ZVAsset{}, [&] {
    // A previous asset of the same file stops loading: only the newest
    // item reads the file.
    std::shared_ptr<ZVDownloadDelegate> previous;
    {
      std::lock_guard lock(mutex_);
      if (auto found = assetLoaders_.find(fileName); found != assetLoaders_.end())
        previous = found->second;
    }
    if (auto loader = std::dynamic_pointer_cast<ZVAssetLoaderDelegate>(previous))
      loader->cancelAssetLoading();
    if (isLoaded(fileName))
      return ZVAsset{.url = "file://" + pathToFile(fileName), .loaderDelegate = nullptr};
    AssetLoaderFactory factory;
    {
      std::lock_guard lock(mutex_);
      factory = assetLoaderFactory_;
    }
    ZVAsset asset{.url = "customLoader://" + fileName,
                  .loaderDelegate = factory ? factory(fileName) : nullptr};
    std::lock_guard lock(mutex_);
    assetLoaders_[fileName] = asset.loaderDelegate;
    if (auto stored = files_.find(fileName); stored != files_.end()) {
      stored->second->setAssetLoaderDelegate(asset.loaderDelegate);
    }
    return asset;
  });
}

void ZVResourceManager::setAssetLoaderFactory(AssetLoaderFactory factory) {
  std::lock_guard lock(mutex_);
  assetLoaderFactory_ = std::move(factory);
}

void ZVResourceManager::removeFile(const std::string& fileName) {
  guarded(kClass, "removeFile", [&] {
    ZVLog::LogWarning("[ZVResourceManager][removeFile] file: {}", fileName);
    if (!removeRegularFile(cacheFolder_, fileName)) {
      ZVLog::LogWarning("[ZVResourceManager][removeFile] Warning! Can't remove file: {}", fileName);
    }
    {
      std::lock_guard lock(mutex_);
      files_.erase(fileName);
    }
    if (auto validator = ZVFilesSavedValidator::defaultValidator()) validator->remove(fileName);
    if (auto cache = ZVCacheManager::defaultManager()) cache->removeFile(fileName);
  });
}

void ZVResourceManager::removeLink(const std::string& fileName) {
  guarded(kClass, "removeLink", [&] {
    std::lock_guard lock(mutex_);
    files_.erase(fileName);
  });
}

int ZVResourceManager::fileHandler(const std::string& fileName) {
  return guarded(kClass, "fileHandler", -1, [&] {
    // Only the cache's own file is served, never a link's target.
    return fileSystem()->open(pathToFile(fileName).c_str(), O_RDONLY | O_NOFOLLOW, 0);
  });
}

void ZVResourceManager::finishLoading(const std::string& fileName) {
  guarded(kClass, "finishLoading", [&] {
    ZVLog::system(fmt::format("[ZVResourceManager][finishLoading] file: {}", fileName));
    std::int32_t fullSize = 0;
    {
      std::lock_guard lock(mutex_);
      if (waiting_.empty() || !waiting_.front()) {
        ZVLog::system("[ZVResourceManager][finishLoading] Error, waiting list is empty.");
        return;
      }
      const auto& first = waiting_.front()->infoStatus();
      if (first->fileName() != fileName) {
        ZVLog::system(
            fmt::format("[ZVResourceManager][finishLoading] Error, diferrent object. First = {}",
                        first->fileName()));
        return;
      }
      fullSize = first->fullSize();
      waiting_.pop_front();
    }
    if (auto cache = ZVCacheManager::defaultManager()) cache->updateInformationOfFile(fileName);
    if (auto validator = ZVFilesSavedValidator::defaultValidator()) {
      validator->setFullLoadedWhenSynced(fileName, fullSize);
    }
    tryDownloadNextFile();
  });
}

void ZVResourceManager::errorLoadingResource(const std::string& fileName, std::int32_t) {
  guarded(kClass, "errorLoadingResource", [&] {
    {
      std::lock_guard lock(mutex_);
      if (waiting_.empty() || !waiting_.front()) return;
      ZVLog::system(fmt::format("[ZVResourceManager][errorLoadingResource] Errorloading file = {}",
                                fileName));
      waiting_.pop_front();
    }
    if (auto cache = ZVCacheManager::defaultManager()) cache->updateInformationOfFile(fileName);
    {
      std::lock_guard lock(mutex_);
      files_.erase(fileName);
    }
    tryDownloadNextFile();
  });
}

}  // namespace zivora
