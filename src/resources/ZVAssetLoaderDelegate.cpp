#include "resources/ZVAssetLoaderDelegate.h"

#include <algorithm>
#include <vector>

#include "platform/FileSystem.h"
#include "platform/dispatch/Runtime.h"
#include "resources/ZVFileInfoStatus.h"
#include "resources/ZVResourceManager.h"
#include "sdk/Context.h"
#include "util/Guard.h"
#include "util/ZVLog.h"

namespace zivora {
namespace {

constexpr const char* kClass = "ZVAssetLoaderDelegate";
constexpr std::int64_t kProbeLength = 2;
constexpr auto kProbeDelay = std::chrono::nanoseconds(100000);
// A slice is read and answered in pieces of this size through one buffer:
// the player's thread, which usually waits for the first few KiB of a read
// ahead of a megabyte, wakes after the first piece rather than after the
// whole slice, and no answer costs a fresh megabyte that is zeroed, faulted
// in and unmapped again on the main queue.
constexpr std::int64_t kAnswerPieceBytes = 64 * 1024;

std::shared_ptr<ZVResourceManager> manager() { return ZVResourceManager::defaultManager(); }

// A read descriptor of the cached file for one answer, closed after it.
class CacheFileReader {
 public:
  explicit CacheFileReader(const std::string& fileName)
      : files_(ZVResourceManager::fileSystem()),
        fd_(manager() ? manager()->fileHandler(fileName) : -1) {}
  ~CacheFileReader() {
    if (fd_ >= 0) files_->close(fd_);
  }
  CacheFileReader(const CacheFileReader&) = delete;
  CacheFileReader& operator=(const CacheFileReader&) = delete;

  bool read(std::int64_t offset, std::vector<std::uint8_t>& bytes) {
    if (fd_ < 0) return false;
    std::size_t done = 0;
    while (done < bytes.size()) {
      const ssize_t got = files_->pread(fd_, bytes.data() + done, bytes.size() - done,
                                        static_cast<off_t>(offset + done));
      if (got <= 0) return false;
      done += static_cast<std::size_t>(got);
    }
    return true;
  }

 private:
  std::shared_ptr<platform::FileSystem> files_;
  int fd_;
};

}  // namespace

ZVAssetLoaderDelegate::ZVAssetLoaderDelegate(std::string fileName)
    : fileName_(std::move(fileName)) {}

std::int64_t ZVAssetLoaderDelegate::loadedSize() const {
  return fileInfo_ ? fileInfo_->loadedSize() : 0;
}

bool ZVAssetLoaderDelegate::shouldWaitForLoadingOfRequestedResource(
    const std::shared_ptr<media::LoadingRequest>& loadingRequest) {
  return guarded(kClass, "shouldWaitForLoadingOfRequestedResource", false, [&] {
    if (!loadingRequest) return false;
    const std::int64_t length = loadingRequest->requestedLength();
    fillInContentInformation(loadingRequest->contentInformationRequest());
    auto resources = manager();
    fileInfo_ = resources ? resources->getLoadInfo(fileName_) : nullptr;
    if (!fileInfo_) {
      ZVLog::LogWarning(
          "[ZVAssetLoaderDelegate][shouldWaitForLoadingOfRequestedResource] Can't find info fo "
          "file: {}",
          fileName_);
      return false;
    }
    if (length == kProbeLength) {
      sendFakeData(loadingRequest);
    } else {
      startLoadData(loadingRequest);
    }
    return true;
  });
}

void ZVAssetLoaderDelegate::fillInContentInformation(
    media::LoadingRequest::ContentInformationRequest& information) {
  guarded(kClass, "fillInContentInformation", [&] {
    information.setContentType(TS_MIME_TYPE_VIDEO);
    information.setByteRangeAccessSupported(true);
    auto resources = manager();
    information.setContentLength(resources ? resources->fileSize(fileName_) : -1);
  });
}

void ZVAssetLoaderDelegate::sendFakeData(
    const std::shared_ptr<media::LoadingRequest>& loadingRequest) {
  Context::require()->runtime().mainQueue().after(
      std::chrono::duration_cast<dispatch::Duration>(kProbeDelay), [loadingRequest] {
        guarded(kClass, "sendFakeDataDispatch", [&] {
          const std::vector<std::uint8_t> probe{0x01, 0x02};
          loadingRequest->respond(probe);
          loadingRequest->finishLoading();
        });
      });
}

bool ZVAssetLoaderDelegate::answer(media::LoadingRequest& request, std::int64_t from,
                                   std::int64_t to) {
  CacheFileReader reader(fileName_);
  std::vector<std::uint8_t> piece;
  for (const auto& slice : media::LoadingRequest::slicesToAnswer(from, to, to)) {
    const std::int64_t end = slice.offset + slice.length;
    for (std::int64_t at = slice.offset; at < end; at += kAnswerPieceBytes) {
      piece.resize(static_cast<std::size_t>(std::min(kAnswerPieceBytes, end - at)));
      if (!reader.read(at, piece)) return false;
      request.respond(piece);
    }
  }
  return true;
}

void ZVAssetLoaderDelegate::startLoadData(
    const std::shared_ptr<media::LoadingRequest>& loadingRequest) {
  guarded(kClass, "startLoadData", [&] {
    const std::int64_t offset = loadingRequest->requestedOffset();
    const std::int64_t length = loadingRequest->requestedLength();
    if (loadedSize() >= offset + length) {
      answer(*loadingRequest, offset, offset + length);
      loadingRequest->finishLoading();
      loadingRequest_ = nullptr;
      return;
    }
    // An earlier open read is replaced and left unfinished.
    loadingRequest_ = loadingRequest;
    finishOffset_ = offset + length;
    if (loadedSize() > offset) answer(*loadingRequest, offset, loadedSize());
  });
}

void ZVAssetLoaderDelegate::startLoading(const std::string&) {
  ZVLog::system("[ZVAssetLoaderDelegate] Start Loading file");
}

void ZVAssetLoaderDelegate::receiveData(std::int64_t) {
  guarded(kClass, "receiveData", [&] {
    if (!loadingRequest_) return;
    const std::int64_t current = loadingRequest_->currentOffset();
    if (loadedSize() <= current) return;
    const std::int64_t remaining = finishOffset_ - current;
    if (remaining == 0) {
      loadingRequest_->finishLoading();
      loadingRequest_ = nullptr;
      return;
    }
    const std::int64_t n = std::min(loadedSize() - current, remaining);
    if (n < 1) return;
    answer(*loadingRequest_, current, current + n);
    if (n >= remaining) {
      loadingRequest_->finishLoading();
      loadingRequest_ = nullptr;
    }
  });
}

void ZVAssetLoaderDelegate::setAsset(std::weak_ptr<media::MediaAsset> asset) {
  std::lock_guard lock(assetMutex_);
  asset_ = std::move(asset);
}

void ZVAssetLoaderDelegate::cancelAssetLoading() {
  std::shared_ptr<media::MediaAsset> asset;
  {
    std::lock_guard lock(assetMutex_);
    asset = asset_.lock();
  }
  if (asset) asset->cancelLoading();
}

void ZVAssetLoaderDelegate::finishLoading(const std::string&) {
  ZVLog::system("[ZVAssetLoaderDelegate] Finish loading All File");
}

}  // namespace zivora
