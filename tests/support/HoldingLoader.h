#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/media/ResourceLoaderDelegate.h"

namespace zivora::test {

// Takes every read of a custom-loader asset (1 MiB long, it says) and keeps
// it open without answering; the test answers, or waits for the reads.
class HoldingLoader final : public media::ResourceLoaderDelegate {
 public:
  bool shouldWaitForLoadingOfRequestedResource(
      const std::shared_ptr<media::LoadingRequest>& request) override;

  // The index-th read taken, once it has come; null if it does not come
  // within `limit`.
  std::shared_ptr<media::LoadingRequest> waitForRequest(
      std::size_t index, std::chrono::seconds limit = std::chrono::seconds(20));
  std::size_t requestCount();

  // False refuses the reads that come next.
  bool accept = true;

 private:
  std::mutex mutex_;
  std::condition_variable taken_;
  std::vector<std::shared_ptr<media::LoadingRequest>> requests_;
};

}  // namespace zivora::test
