#include "resources/ZVFileStatusEntity.h"

namespace zivora {

ZVFileStatusEntity::ZVFileStatusEntity(std::shared_ptr<ZVFileInfoStatus> infoStatus,
                                       std::shared_ptr<ZVDownloadDelegate> delegate)
    : delegate_(std::move(delegate)), infoStatus_(std::move(infoStatus)) {}

std::shared_ptr<ZVDownloadDelegate> ZVFileStatusEntity::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_;
}

void ZVFileStatusEntity::setDelegate(std::shared_ptr<ZVDownloadDelegate> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

std::shared_ptr<ZVDownloadDelegate> ZVFileStatusEntity::assetLoaderDelegate() const {
  std::lock_guard lock(mutex_);
  return assetLoaderDelegate_;
}

void ZVFileStatusEntity::setAssetLoaderDelegate(std::shared_ptr<ZVDownloadDelegate> delegate) {
  std::lock_guard lock(mutex_);
  assetLoaderDelegate_ = std::move(delegate);
}

}  // namespace zivora
