#include "support/FakeHttpClient.h"

#include "events/ZVSendRequest.h"

namespace zivora::test {

platform::HttpResponse FakeHttpClient::perform(const platform::HttpRequest& request) {
  std::lock_guard lock(mutex_);
  requests_.push_back(request);
  if (script_.empty()) {
    platform::HttpResponse ok;
    ok.status = 200;
    ok.body = "{}";
    return ok;
  }
  auto response = script_.front();
  script_.pop_front();
  return response;
}

void FakeHttpClient::enqueue(platform::HttpResponse response) {
  std::lock_guard lock(mutex_);
  script_.push_back(std::move(response));
}

void FakeHttpClient::enqueue(long status, std::string body, Headers headers) {
  platform::HttpResponse response;
  response.status = status;
  response.body = std::move(body);
  response.headers = std::move(headers);
  enqueue(std::move(response));
}

void FakeHttpClient::enqueueFailure(std::string error) {
  platform::HttpResponse response;
  response.error = std::move(error);
  enqueue(std::move(response));
}

std::vector<platform::HttpRequest> FakeHttpClient::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

nlohmann::json FakeHttpClient::lastParams() const {
  const std::string body = requests().back().body;
  const auto params = body.substr(7, body.rfind("&md5=") - 7);
  return nlohmann::json::parse(*ZVSendRequest::urlDecode(params));
}

}  // namespace zivora::test
