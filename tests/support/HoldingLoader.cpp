#include "support/HoldingLoader.h"

namespace zivora::test {

bool HoldingLoader::shouldWaitForLoadingOfRequestedResource(
    const std::shared_ptr<media::LoadingRequest>& request) {
  request->contentInformationRequest().setContentLength(1 << 20);
  if (!accept) return false;
  std::lock_guard lock(mutex_);
  requests_.push_back(request);
  taken_.notify_all();
  return true;
}

std::shared_ptr<media::LoadingRequest> HoldingLoader::waitForRequest(std::size_t index,
                                                                     std::chrono::seconds limit) {
  std::unique_lock lock(mutex_);
  if (!taken_.wait_for(lock, limit, [&] { return requests_.size() > index; })) return nullptr;
  return requests_[index];
}

std::size_t HoldingLoader::requestCount() {
  std::lock_guard lock(mutex_);
  return requests_.size();
}

}  // namespace zivora::test
