#include "resources/ZVResourceLoader.h"

#include <errno.h>
#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <utility>

#include "platform/FileSystem.h"
#include "platform/dispatch/QueueAssert.h"
#include "platform/dispatch/Runtime.h"
#include "resources/ZVCacheManager.h"
#include "resources/ZVFileSyncQueue.h"
#include "resources/ZVResourceManager.h"
#include "sdk/Context.h"
#include "util/Guard.h"
#include "util/ZVException.h"
#include "util/ZVLog.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

constexpr char kClass[] = "ZVResourceLoader";
constexpr std::int32_t kTransferFailed = 1;
constexpr std::int32_t kNoFreeSpace = 2;

std::int32_t saturated(std::int64_t value) {
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, INT32_MIN, INT32_MAX));
}

// A cache file is a regular file in the cache directory; a link planted
// under its name is never followed, neither to resume from nor to write to.
bool isRegularFile(platform::FileSystem& files, const std::string& path,
                   platform::FileStatus& status) {
  return files.status(path.c_str(), status) == 0 && status.regular;
}

// -1 when there is no file.
std::int64_t sizeOf(platform::FileSystem& files, const std::string& path) {
  platform::FileStatus status;
  return isRegularFile(files, path, status) ? status.size : -1;
}

bool hasFreeSpace() {
  auto manager = ZVResourceManager::defaultManager();
  return manager && manager->hasFreeSpace();
}

void needSpace(std::int64_t bytes) {
  if (auto cache = ZVCacheManager::defaultManager()) cache->needSpace(bytes);
}

// Transfer events, and the file they write, belong to the main queue.
void assertOnMainQueue() {
  auto context = Context::current();
  if (context && context->hasRuntime()) ZV_ASSERT_ON(context->runtime().mainQueue());
}

}  // namespace

// Hands the events of one transfer to the loader with the transfer's number,
// so the loader can tell a superseded transfer's late events from the
// current one's.
class ZVResourceLoader::TaskListener final : public platform::DownloadTaskDelegate {
 public:
  TaskListener(std::weak_ptr<ZVResourceLoader> loader, std::uint64_t task)
      : loader_(std::move(loader)), task_(task) {}

  bool didReceiveResponse(const platform::DownloadResponse& response) override {
    auto loader = loader_.lock();
    return loader && loader->didReceiveResponse(task_, response);
  }
  void didReceiveData(std::string_view chunk) override {
    if (auto loader = loader_.lock()) loader->didReceiveData(task_, chunk);
  }
  void didComplete(const std::optional<std::string>& error) override {
    if (auto loader = loader_.lock()) loader->didCompleteWithError(task_, error);
  }

 private:
  std::weak_ptr<ZVResourceLoader> loader_;
  std::uint64_t task_;
};

ZVResourceLoader::ZVResourceLoader() : files_(ZVResourceManager::fileSystem()) {}

ZVResourceLoader::~ZVResourceLoader() {
  if (task_) task_->cancel();
  // The context may be going too: no queue to hand the file to.
  if (fd_ >= 0) {
    files_->fdatasync(fd_);
    files_->close(fd_);
  }
}

std::shared_ptr<ZVFileStatusEntity> ZVResourceLoader::currentEntity() const {
  std::lock_guard lock(mutex_);
  return currentEntity_;
}

void ZVResourceLoader::load(const std::shared_ptr<ZVFileStatusEntity>& entity) {
  guarded(kClass, "load", [&] {
    if (busy_ || !entity) return;
    if (!hasFreeSpace()) {
      errorDownload(entity, kNoFreeSpace);
      return;
    }
    busy_ = true;
    ZVLog::LogDebug("[ZVResourceLoader] Start load file: {}", entity->infoStatus()->fileName());
    {
      std::lock_guard lock(mutex_);
      currentEntity_ = entity;
    }
    canceled_ = false;
    restartsWithoutBody_ = 0;
    bytesSinceSpaceCheck_ = 0;
    resumeNewRequest();
  });
}

void ZVResourceLoader::cancel() {
  guarded(kClass, "cancel", [&] {
    busy_ = false;
    canceled_ = true;
    std::shared_ptr<platform::DownloadTask> task;
    {
      std::lock_guard lock(mutex_);
      task = task_;
    }
    if (task) task->cancel();
    closeFile();
  });
}

void ZVResourceLoader::createNewRequest() {
  guarded(kClass, "createNewRequest", [&] {
    if (++restartsWithoutBody_ > kMaxRestartsWithoutBody) {
      ZVLog::LogWarning("[ZVResourceLoader][createNewRequest] Warning! Gave up after {} restarts",
                        kMaxRestartsWithoutBody);
      abandonTask();
      errorDownload(currentEntity(), kTransferFailed);
      return;
    }
    closeFile();
    removeFile();
    startTask(false);
  });
}

void ZVResourceLoader::resumeNewRequest() {
  guarded(kClass, "resumeNewRequest", [&] { startTask(true); });
}

void ZVResourceLoader::startTask(bool ranged) {
  auto entity = currentEntity();
  if (!entity) return;
  const auto& info = *entity->infoStatus();
  platform::DownloadRequest request{.url = info.url(), .headers = {}};
  if (ranged) {
    if (const std::int64_t size = sizeOf(*files_, info.fileFullPath()); size > 0) {
      request.headers.emplace_back(TS_HTTP_HEADER_RANGE, fmt::format("bytes={}-", size));
    }
  }
  const std::uint64_t number = ++taskNumber_;
  auto listener = std::make_shared<TaskListener>(weak_from_this(), number);
  auto context = Context::current();
  if (!context) throw std::logic_error("no context");
  auto task = context->downloads().start(std::move(request), std::move(listener));
  std::lock_guard lock(mutex_);
  task_ = std::move(task);
}

void ZVResourceLoader::abandonTask() {
  ++taskNumber_;
  std::shared_ptr<platform::DownloadTask> task;
  {
    std::lock_guard lock(mutex_);
    task = task_;
  }
  if (task) task->cancel();
  closeFile();
}

bool ZVResourceLoader::validateRange(const std::optional<std::string>& contentRange,
                                     const std::optional<std::string>& contentLength) {
  return guarded(kClass, "validateRange", false, [&] {
    if (!contentRange) {
      ZVLog::LogWarning("[ZVResourceLoader][validateRange] Warning! Hasn't header Content-Range");
      return false;
    }
    const std::int32_t offset = parseRange(*contentRange);
    if (offset == -1) {
      ZVLog::LogWarning(
          "[ZVResourceLoader][validateRange] Warning! Can't parse header Content-Range");
      return false;
    }
    auto entity = currentEntity();
    if (!entity) return false;
    auto& info = *entity->infoStatus();
    platform::FileStatus status;
    if (!isRegularFile(*files_, info.fileFullPath(), status)) {
      ZVLog::LogDebug("[ZVResourceLoader][validateRange] File didn't find.");
      return false;
    }
    const int probe = files_->open(info.fileFullPath().c_str(), O_WRONLY | O_NOFOLLOW, 0);
    if (probe < 0) {
      ZVLog::LogDebug("[ZVResourceLoader][validateRange] Fail open file.");
      return false;
    }
    files_->close(probe);
    if (offset < 0 || static_cast<std::int64_t>(offset) > status.size) {
      ZVLog::LogDebug("[ZVResourceLoader][validateRange] Received offset bigger then file size.");
      return false;
    }
    info.setLoadedSize(offset);
    if (contentLength && !contentLength->empty()) {
      info.setFullSize(rangeFullSize(offset, *contentLength));
    } else {
      info.setFullSize(parseRangeForSize(*contentRange));
    }
    return info.fullSize() > 0;
  });
}

void ZVResourceLoader::removeFile() {
  guarded(kClass, "removeFile", [&] {
    if (auto entity = currentEntity()) files_->unlink(entity->infoStatus()->fileFullPath().c_str());
  });
}

std::int64_t ZVResourceLoader::integerValue(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  std::int64_t value = 0;
  for (; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])); ++i) {
    const int digit = text[i] - '0';
    if (value > (INT64_MAX - digit) / 10) return negative ? INT64_MIN : INT64_MAX;
    value = value * 10 + digit;
  }
  return negative ? -value : value;
}

std::int32_t ZVResourceLoader::rangeFullSize(std::int32_t offset, std::string_view contentLength) {
  // A length near the int64 limits must not overflow the sum.
  const std::int64_t length =
      std::clamp<std::int64_t>(integerValue(contentLength), INT32_MIN, INT32_MAX);
  return saturated(offset + length);
}

std::int32_t ZVResourceLoader::parseRange(const std::optional<std::string_view>& contentRange) {
  return guarded(kClass, "parseRange", std::int32_t{-1}, [&]() -> std::int32_t {
    if (!contentRange) return -1;
    const auto start = std::find_if(contentRange->begin(), contentRange->end(), [](char c) {
      return std::isdigit(static_cast<unsigned char>(c));
    });
    if (start == contentRange->end()) return -1;
    const std::size_t offset = static_cast<std::size_t>(start - contentRange->begin());
    return saturated(integerValue(contentRange->substr(offset)));
  });
}

std::int32_t ZVResourceLoader::parseRangeForSize(
    const std::optional<std::string_view>& contentRange) {
  return guarded(kClass, "parseRangeForSize", std::int32_t{-1}, [&]() -> std::int32_t {
    if (!contentRange) return -1;
    const auto slash = contentRange->rfind('/');
    if (slash == std::string_view::npos) return -1;
    const std::string_view total = contentRange->substr(slash + 1);
    if (total.empty()) return -1;
    return saturated(integerValue(total));
  });
}

void ZVResourceLoader::errorDownload(const std::shared_ptr<ZVFileStatusEntity>& entity,
                                     std::int32_t error) {
  guarded(kClass, "errorDownload", [&] {
    closeFile();
    if (!entity) {
      busy_ = false;
      return;
    }
    const std::string& name = entity->infoStatus()->fileName();
    ZVLog::LogWarning("Error download file: {}", name);
    // Free before anyone hears of it: the manager's pump and a requester
    // that asks again run on other threads and must find the loader idle.
    busy_ = false;
    if (auto own = delegate()) own->errorLoadingResource(name, error);
    if (auto requester = entity->delegate()) requester->errorLoadingResource(name, error);
    if (auto asset = entity->assetLoaderDelegate()) asset->errorLoadingResource(name, error);
  });
}

bool ZVResourceLoader::didReceiveResponse(std::uint64_t task,
                                          const platform::DownloadResponse& response) {
  assertOnMainQueue();
  if (!isCurrentTask(task)) return false;
  return guarded(kClass, "didReceiveResponse", false, [&] {
    auto entity = currentEntity();
    if (!entity) return false;
    switch (response.status) {
      case TS_HTTP_STATUS_CODE_OK_PARTIAL:
        if (validateRange(response.header(TS_HTTP_HEADER_CONTENT_RANGE),
                          response.header(TS_HTTP_HEADER_CONTENT_LENGTH))) {
          if (entity->infoStatus()->fullSize() > TS_MAX_CACHE_SIZE) {
            failTooLarge("the announced size is larger than the cache");
            return false;
          }
          needSpace(entity->infoStatus()->leftDownload());
          openFile(false);
          return true;
        }
        ZVLog::LogWarning("[ZVResourceLoader][didReceiveResponse] Warning! Can't open file.");
        createNewRequest();
        return false;
      case TS_HTTP_STATUS_CODE_OK:
        if (integerValue(response.header(TS_HTTP_HEADER_CONTENT_LENGTH).value_or("")) >
            TS_MAX_CACHE_SIZE) {
          failTooLarge("the announced size is larger than the cache");
          return false;
        }
        acceptWholeFile(entity, response);
        return true;
      case TS_HTTP_STATUS_CODE_RANGE_NOT_SATISFIABLE:
        createNewRequestAfterError_ = true;
        return false;
      default:
        return false;
    }
  });
}

void ZVResourceLoader::acceptWholeFile(const std::shared_ptr<ZVFileStatusEntity>& entity,
                                       const platform::DownloadResponse& response) {
  auto& info = *entity->infoStatus();
  info.setLoadedSize(0);
  info.setFullSize(
      saturated(integerValue(response.header(TS_HTTP_HEADER_CONTENT_LENGTH).value_or(""))));
  openFile(true);
  needSpace(info.fullSize());
  const std::string& name = info.fileName();
  if (auto requester = entity->delegate()) requester->startLoading(name);
  if (auto asset = entity->assetLoaderDelegate()) asset->startLoading(name);
}

void ZVResourceLoader::openFile(bool truncate) {
  auto entity = currentEntity();
  if (!entity) return;
  std::lock_guard lock(fileMutex_);
  if (fd_ >= 0) files_->close(fd_);
  const std::string& path = entity->infoStatus()->fileFullPath();
  // Whatever else stands under the name (a link above all) is replaced by
  // a fresh file; O_NOFOLLOW refuses a link planted between the two steps.
  platform::FileStatus status;
  if (files_->status(path.c_str(), status) == 0 && !status.regular) files_->unlink(path.c_str());
  const int flags = O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | (truncate ? O_TRUNC : 0);
  fd_ = files_->open(path.c_str(), flags, 0644);
}

void ZVResourceLoader::closeFile() {
  int fd = -1;
  {
    std::lock_guard lock(fileMutex_);
    fd = std::exchange(fd_, -1);
  }
  if (fd < 0) return;
  auto entity = currentEntity();
  const std::string name = entity ? entity->infoStatus()->fileName() : std::string();
  // The sync is queued ahead of any record of the file, which is what keeps
  // a record from outliving bytes that never reached the disk.
  if (auto syncs = ZVFileSyncQueue::defaultQueue()) return syncs->syncAndClose(fd, name);
  files_->fdatasync(fd);
  files_->close(fd);
}

bool ZVResourceLoader::writeChunk(std::string_view chunk) {
  std::lock_guard lock(fileMutex_);
  if (fd_ < 0) return false;
  while (!chunk.empty()) {
    const ssize_t written = files_->write(fd_, chunk.data(), chunk.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    chunk.remove_prefix(static_cast<std::size_t>(written));
  }
  // A file unlinked under us would swallow the rest of the download.
  platform::FileStatus status;
  return files_->status(fd_, status) == 0 && status.links > 0;
}

void ZVResourceLoader::failTransfer() {
  abandonTask();
  errorDownload(currentEntity(), kTransferFailed);
}

void ZVResourceLoader::failTooLarge(const char* reason) {
  auto entity = currentEntity();
  ZVLog::LogWarning("[ZVResourceLoader] Error! {}: {}",
                    entity ? entity->infoStatus()->fileName() : "", reason);
  abandonTask();
  removeFile();
  errorDownload(entity, kTransferFailed);
}

void ZVResourceLoader::didReceiveData(std::uint64_t task, std::string_view chunk) {
  assertOnMainQueue();
  if (!isCurrentTask(task)) return;
  auto entity = currentEntity();
  if (!entity) return;
  // Whatever the server announced, no cache file grows past the cache.
  if (entity->infoStatus()->loadedSize() + static_cast<std::int64_t>(chunk.size()) >
      TS_MAX_CACHE_SIZE)
    return failTooLarge("the body is larger than the cache");
  bool written = false;
  guarded(kClass, "didReceiveData2", [&] {
    if (!writeChunk(chunk)) {
      throw ZVException("WriteFailed", fmt::format("{}: {}", entity->infoStatus()->fileName(),
                                                   std::strerror(errno)));
    }
    written = true;
  });
  if (!written) return failTransfer();
  guarded(kClass, "didReceiveData", [&] {
    const auto bytes = static_cast<std::int64_t>(chunk.size());
    entity->infoStatus()->addLoadedSize(bytes);
    restartsWithoutBody_ = 0;
    guarded(kClass, "didReceiveData2", [&] {
      if (auto requester = entity->delegate()) requester->receiveData(bytes);
      if (auto asset = entity->assetLoaderDelegate()) asset->receiveData(bytes);
    });
    bytesSinceSpaceCheck_ += bytes;
    if (bytesSinceSpaceCheck_ >= kFreeSpaceCheckInterval) {
      bytesSinceSpaceCheck_ = 0;
      if (!hasFreeSpace()) {
        ZVLog::LogWarning("[ZVResourceLoader][didReceiveData] Warning! Not enough free space");
        failTransfer();
      }
    }
  });
}

void ZVResourceLoader::didCompleteWithError(std::uint64_t task,
                                            const std::optional<std::string>& error) {
  assertOnMainQueue();
  if (!isCurrentTask(task)) return;
  guarded(kClass, "didCompleteWithError", [&] {
    if (canceled_) return;
    closeFile();
    if (createNewRequestAfterError_.exchange(false)) {
      createNewRequest();
      return;
    }
    auto entity = currentEntity();
    if (error) {
      ZVLog::LogDebug("[ZVResourceLoader][didCompleteWithError] {}", *error);
      errorDownload(entity, kTransferFailed);
      return;
    }
    busy_ = false;
    if (entity) notifyFinished(entity);
  });
}

void ZVResourceLoader::notifyFinished(const std::shared_ptr<ZVFileStatusEntity>& entity) {
  entity->infoStatus()->setIsReady(true);
  const std::string& name = entity->infoStatus()->fileName();
  if (auto own = delegate()) own->finishLoading(name);
  if (auto requester = entity->delegate()) requester->finishLoading(name);
  if (auto asset = entity->assetLoaderDelegate()) asset->finishLoading(name);
}

}  // namespace zivora
