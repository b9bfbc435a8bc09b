#include "platform/media/MediaAsset.h"

#include <algorithm>

namespace zivora::media {

namespace {
constexpr std::string_view kFileScheme = "file://";
}

MediaAsset::MediaAsset(std::string url) : url_(std::move(url)) {}

std::shared_ptr<MediaAsset> MediaAsset::fromFile(const std::filesystem::path& path) {
  return std::make_shared<MediaAsset>(std::string(kFileScheme) + path.string());
}

bool MediaAsset::isCustomLoader() const {
  return std::string_view(url_).starts_with(kCustomLoaderScheme);
}

std::filesystem::path MediaAsset::filePath() const {
  if (isCustomLoader()) return {};
  std::string_view url(url_);
  if (url.starts_with(kFileScheme)) url.remove_prefix(kFileScheme.size());
  return std::filesystem::path(url);
}

void MediaAsset::setResourceLoaderDelegate(std::weak_ptr<ResourceLoaderDelegate> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

std::shared_ptr<ResourceLoaderDelegate> MediaAsset::resourceLoaderDelegate() const {
  std::lock_guard lock(mutex_);
  return delegate_.lock();
}

void MediaAsset::cancelLoading() {
  std::vector<std::shared_ptr<LoadingRequest>> reads;
  {
    std::lock_guard lock(mutex_);
    cancelled_ = true;
    reads.swap(openReads_);
  }
  for (const auto& read : reads) read->cancel();
}

bool MediaAsset::isLoadingCancelled() const {
  std::lock_guard lock(mutex_);
  return cancelled_;
}

bool MediaAsset::trackRead(const std::shared_ptr<LoadingRequest>& request) {
  std::lock_guard lock(mutex_);
  if (cancelled_) return false;
  openReads_.push_back(request);
  return true;
}

void MediaAsset::untrackRead(const std::shared_ptr<LoadingRequest>& request) {
  std::lock_guard lock(mutex_);
  std::erase(openReads_, request);
}

}  // namespace zivora::media
