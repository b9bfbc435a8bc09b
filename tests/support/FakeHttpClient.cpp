#include "support/FakeHttpClient.h"

namespace zivora::test {

platform::HttpResponse FakeHttpClient::perform(const platform::HttpRequest& request) {
  std::lock_guard lock(mutex_);
  requests_.push_back(request);
  if (script_.empty()) return {.status = 200, .body = "{}"};
  auto response = script_.front();
  script_.pop_front();
  return response;
}

void FakeHttpClient::enqueue(platform::HttpResponse response) {
  std::lock_guard lock(mutex_);
  script_.push_back(std::move(response));
}

void FakeHttpClient::enqueue(long status, std::string body) {
  enqueue({.status = status, .body = std::move(body)});
}

std::vector<platform::HttpRequest> FakeHttpClient::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

}  // namespace zivora::test
