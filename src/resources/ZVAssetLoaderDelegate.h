#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "platform/media/LoadingRequest.h"
#include "platform/media/MediaAsset.h"
#include "platform/media/ResourceLoaderDelegate.h"
#include "resources/ZVDownloadDelegate.h"

namespace zivora {

class ZVFileInfoStatus;

// Lets the player start a video while it is still downloading: it answers
// the player's byte-range reads of a "customLoader://" asset from the
// partial cache file as far as the bytes exist, keeps at most one read
// open, and completes it as the downloader reports new bytes. Main queue
// only; reads are served straight from the file, one slice at a time.
class ZVAssetLoaderDelegate : public ZVDownloadDelegate,
                              public media::ResourceLoaderDelegate,
                              public std::enable_shared_from_this<ZVAssetLoaderDelegate> {
 public:
  static constexpr const char* TS_MIME_TYPE_VIDEO = "video/mp4";

  explicit ZVAssetLoaderDelegate(std::string fileName);

  bool shouldWaitForLoadingOfRequestedResource(
      const std::shared_ptr<media::LoadingRequest>& loadingRequest) override;
  void fillInContentInformation(media::LoadingRequest::ContentInformationRequest& information);
  void startLoadData(const std::shared_ptr<media::LoadingRequest>& loadingRequest);
  // The player's two-byte probe, answered without touching the file.
  void sendFakeData(const std::shared_ptr<media::LoadingRequest>& loadingRequest);

  void startLoading(const std::string& fileName) override;
  void receiveData(std::int64_t bytes) override;
  void finishLoading(const std::string& fileName) override;
  // An open read is neither finished nor failed: it waits for a retry.
  void errorLoadingResource(const std::string&, std::int32_t) override {}

  bool hasOpenRequest() const { return loadingRequest_ != nullptr; }

  // The asset this loader feeds, held weakly (its items own it).
  void setAsset(std::weak_ptr<media::MediaAsset> asset);
  // Stops the asset's loading: a newer asset of the same file replaces it.
  void cancelAssetLoading();

 private:
  // Answers `request` from the file in [from, to); false when the file
  // cannot be read.
  bool answer(media::LoadingRequest& request, std::int64_t from, std::int64_t to);
  std::int64_t loadedSize() const;

  std::shared_ptr<media::LoadingRequest> loadingRequest_;
  std::string fileName_;
  std::shared_ptr<ZVFileInfoStatus> fileInfo_;
  std::int64_t finishOffset_ = 0;
  std::mutex assetMutex_;
  std::weak_ptr<media::MediaAsset> asset_;
};

}  // namespace zivora
