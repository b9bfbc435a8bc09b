#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/media/LoadingRequest.h"
#include "platform/media/ResourceLoaderDelegate.h"

namespace zivora::media {

// What an item plays: a local file, or a URL with the scheme
// "customLoader://" whose bytes come from the resource-loader delegate.
// Thread-safe: the delegate is set on the main queue and read by the
// player's streaming threads.
class MediaAsset {
 public:
  static constexpr const char* kCustomLoaderScheme = "customLoader://";

  // A "file://" URL, a "customLoader://" URL, or a plain path.
  explicit MediaAsset(std::string url);
  static std::shared_ptr<MediaAsset> fromFile(const std::filesystem::path& path);
  MediaAsset(const MediaAsset&) = delete;
  MediaAsset& operator=(const MediaAsset&) = delete;

  const std::string& url() const { return url_; }
  bool isCustomLoader() const;
  // The local file of a file asset; empty for a custom-loader asset.
  std::filesystem::path filePath() const;

  // Held weakly: the owner of the delegate keeps it alive.
  void setResourceLoaderDelegate(std::weak_ptr<ResourceLoaderDelegate> delegate);
  std::shared_ptr<ResourceLoaderDelegate> resourceLoaderDelegate() const;

  // Fails the reads that wait and every later read: the items of this
  // asset stop loading. Never waits for a streaming thread.
  void cancelLoading();
  bool isLoadingCancelled() const;

  // The byte source's bookkeeping of open reads; false when loading was
  // cancelled (the read must fail).
  bool trackRead(const std::shared_ptr<LoadingRequest>& request);
  void untrackRead(const std::shared_ptr<LoadingRequest>& request);

 private:
  const std::string url_;
  mutable std::mutex mutex_;
  std::weak_ptr<ResourceLoaderDelegate> delegate_;
  std::vector<std::shared_ptr<LoadingRequest>> openReads_;
  bool cancelled_ = false;
};

}  // namespace zivora::media
