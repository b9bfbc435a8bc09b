#include "support/StallingHttpClient.h"

namespace zivora::test {

platform::HttpResponse StallingHttpClient::perform(const platform::HttpRequest& request) {
  std::unique_lock lock(mutex_);
  if (request.url == countedUrl_) ++counted_;
  ++inFlight_;
  changed_.notify_all();
  changed_.wait(lock, [this] { return aborted_; });
  --inFlight_;
  return platform::HttpResponse{.error = "aborted"};
}

void StallingHttpClient::abortAll() {
  std::lock_guard lock(mutex_);
  aborted_ = true;
  changed_.notify_all();
}

bool StallingHttpClient::waitForCounted(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [this] { return counted_ > 0; });
}

int StallingHttpClient::counted() {
  std::lock_guard lock(mutex_);
  return counted_;
}

int StallingHttpClient::inFlight() {
  std::lock_guard lock(mutex_);
  return inFlight_;
}

}  // namespace zivora::test
