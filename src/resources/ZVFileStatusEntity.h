#pragma once

#include <memory>
#include <mutex>

#include "resources/ZVDownloadDelegate.h"
#include "resources/ZVFileInfoStatus.h"

namespace zivora {

// One queued download: its status and the two listeners to tell. The
// listeners are replaced from the download queue and the player while the
// main queue reads them, so they sit behind a mutex.
class ZVFileStatusEntity {
 public:
  explicit ZVFileStatusEntity(std::shared_ptr<ZVFileInfoStatus> infoStatus,
                              std::shared_ptr<ZVDownloadDelegate> delegate = nullptr);

  std::shared_ptr<ZVDownloadDelegate> delegate() const;
  void setDelegate(std::shared_ptr<ZVDownloadDelegate> delegate);
  // The progressive playback loader reading the file while it downloads.
  std::shared_ptr<ZVDownloadDelegate> assetLoaderDelegate() const;
  void setAssetLoaderDelegate(std::shared_ptr<ZVDownloadDelegate> delegate);
  const std::shared_ptr<ZVFileInfoStatus>& infoStatus() const { return infoStatus_; }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<ZVDownloadDelegate> delegate_;
  std::shared_ptr<ZVDownloadDelegate> assetLoaderDelegate_;
  const std::shared_ptr<ZVFileInfoStatus> infoStatus_;
};

}  // namespace zivora
