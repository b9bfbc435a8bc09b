#pragma once

#include <deque>
#include <mutex>
#include <vector>

#include "platform/HttpClient.h"

namespace zivora::test {

// Records every request and answers from a script (default: 200 "{}").
class FakeHttpClient final : public platform::HttpClient {
 public:
  platform::HttpResponse perform(const platform::HttpRequest& request) override;

  void enqueue(platform::HttpResponse response);
  void enqueue(long status, std::string body);
  std::vector<platform::HttpRequest> requests() const;

 private:
  mutable std::mutex mutex_;
  std::deque<platform::HttpResponse> script_;
  std::vector<platform::HttpRequest> requests_;
};

}  // namespace zivora::test
