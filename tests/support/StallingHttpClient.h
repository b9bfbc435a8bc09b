#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "platform/HttpClient.h"

namespace zivora::test {

// A server that stalls every request until the client is told to abort. It
// counts the requests to `countedUrl` apart: other records the SDK's queues
// may send reach it too, or not, as the threads run.
class StallingHttpClient final : public platform::HttpClient {
 public:
  explicit StallingHttpClient(std::string countedUrl) : countedUrl_(std::move(countedUrl)) {}

  platform::HttpResponse perform(const platform::HttpRequest& request) override;
  void abortAll() override;

  // Waits until a request to the counted address arrived; false on timeout.
  bool waitForCounted(std::chrono::milliseconds timeout);
  int counted();
  int inFlight();

 private:
  const std::string countedUrl_;
  std::mutex mutex_;
  std::condition_variable changed_;
  int counted_ = 0;
  int inFlight_ = 0;
  bool aborted_ = false;
};

}  // namespace zivora::test
