#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "resources/ZVArrayLoaderHelperDelegate.h"
#include "resources/ZVDownloadDelegate.h"
#include "resources/ZVDownloadFileInfo.h"

namespace zivora {

// Loads the side resources of one ad (images and the like) and tells its
// delegate once when all are complete, or of each failure. Used once per
// batch: addNewForLoad for each URL, then startLoad.
class ZVArrayLoaderHelper : public ZVDownloadDelegate,
                            public std::enable_shared_from_this<ZVArrayLoaderHelper> {
 public:
  // A missing URL (nil) is logged and ignored.
  void addNewForLoad(const std::optional<std::string>& url, bool allowResume);
  void startLoad();
  bool isLoaded();

  void finishLoading(const std::string& fileName) override;
  void errorLoadingResource(const std::string& fileName, std::int32_t error) override;

  std::shared_ptr<ZVArrayLoaderHelperDelegate> delegate() const { return delegate_.lock(); }
  void setDelegate(const std::shared_ptr<ZVArrayLoaderHelperDelegate>& delegate) {
    delegate_ = delegate;
  }

 private:
  std::mutex mutex_;
  std::vector<ZVDownloadFileInfo> wait_;
  std::vector<ZVDownloadFileInfo> downloaded_;
  std::weak_ptr<ZVArrayLoaderHelperDelegate> delegate_;
};

}  // namespace zivora
