#include "support/FakeHttpClient.h"

#include <algorithm>

#include "util/PercentEncoding.h"

namespace zivora::test {

nlohmann::json FakeHttpClient::paramsOf(const platform::HttpRequest& request) {
  constexpr std::string_view kParams = "Params=";
  const std::string_view body = request.body;
  if (!body.starts_with(kParams)) return nullptr;
  const auto end = body.rfind("&md5=");
  auto text = PercentEncoding::decode(
      body.substr(kParams.size(), end == std::string_view::npos ? end : end - kParams.size()));
  if (!text) return nullptr;
  auto document = nlohmann::json::parse(*text, nullptr, false);
  return document.is_discarded() ? nullptr : document;
}

std::string FakeHttpClient::nameOf(const platform::HttpRequest& request) {
  auto params = paramsOf(request);
  return params.is_object() && params.size() == 1 ? params.begin().key() : request.url;
}

platform::HttpResponse FakeHttpClient::perform(const platform::HttpRequest& request) {
  const std::string name = nameOf(request);
  Handler handler;
  {
    std::lock_guard lock(mutex_);
    requests_.push_back(request);
    if (auto found = routes_.find(name); found != routes_.end()) {
      handler = found->second;
    } else if (!script_.empty()) {
      auto response = std::move(script_.front());
      script_.pop_front();
      return response;
    }
  }
  if (!handler) return {.status = 200, .body = "{}"};
  const auto params = paramsOf(request);
  return handler(params.contains(name) ? params.at(name) : nlohmann::json());
}

void FakeHttpClient::enqueue(platform::HttpResponse response) {
  std::lock_guard lock(mutex_);
  script_.push_back(std::move(response));
}

void FakeHttpClient::enqueue(long status, std::string body, Headers headers) {
  enqueue({.status = status, .body = std::move(body), .headers = std::move(headers)});
}

void FakeHttpClient::enqueueFailure(std::string error) { enqueue({.error = std::move(error)}); }

void FakeHttpClient::route(const std::string& name, Handler handler) {
  std::lock_guard lock(mutex_);
  routes_[name] = std::move(handler);
}

void FakeHttpClient::reply(const std::string& name, const nlohmann::json& reply) {
  route(name, [body = reply.dump()](const nlohmann::json&) {
    return platform::HttpResponse{.status = 200, .body = body};
  });
}

void FakeHttpClient::refuse(const std::string& name) {
  route(name, [](const nlohmann::json&) {
    return platform::HttpResponse{.status = 0, .error = "connection refused"};
  });
}

std::vector<platform::HttpRequest> FakeHttpClient::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

std::size_t FakeHttpClient::count(const std::string& name) const {
  const auto all = requests();
  return static_cast<std::size_t>(std::count_if(
      all.begin(), all.end(), [&](const auto& request) { return nameOf(request) == name; }));
}

}  // namespace zivora::test
