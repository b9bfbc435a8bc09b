#pragma once

#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "platform/HttpClient.h"

namespace zivora::test {

// Records every request and answers from a script (default: 200 "{}").
class FakeHttpClient final : public platform::HttpClient {
 public:
  using Headers = std::vector<std::pair<std::string, std::string>>;

  platform::HttpResponse perform(const platform::HttpRequest& request) override;

  void enqueue(platform::HttpResponse response);
  void enqueue(long status, std::string body, Headers headers = {});
  // A request that got no response at all (status 0).
  void enqueueFailure(std::string error);
  std::vector<platform::HttpRequest> requests() const;
  // The document the last signed form body ("Params=...&md5=...") carried,
  // percent-decoded.
  nlohmann::json lastParams() const;

 private:
  mutable std::mutex mutex_;
  std::deque<platform::HttpResponse> script_;
  std::vector<platform::HttpRequest> requests_;
};

}  // namespace zivora::test
