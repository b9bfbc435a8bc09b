#include "support/RoutingHttpClient.h"

#include <algorithm>

#include "util/PercentEncoding.h"

namespace zivora::test {
namespace {

// The Params document of a signed form body, or null.
nlohmann::json paramsOf(const std::string& body) {
  constexpr std::string_view kParams = "Params=";
  if (body.rfind(kParams, 0) != 0) return nullptr;
  const auto end = body.find("&md5=");
  auto text = PercentEncoding::decode(std::string_view(body).substr(
      kParams.size(), end == std::string::npos ? std::string::npos : end - kParams.size()));
  if (!text) return nullptr;
  auto document = nlohmann::json::parse(*text, nullptr, false);
  return document.is_object() && document.size() == 1 ? document : nullptr;
}

}  // namespace

platform::HttpResponse RoutingHttpClient::perform(const platform::HttpRequest& request) {
  Received received{request.url, nullptr, request};
  if (auto params = paramsOf(request.body); !params.is_null()) {
    received.name = params.begin().key();
    received.arguments = params.begin().value();
  }
  Handler handler;
  {
    std::lock_guard lock(mutex_);
    received_.push_back(received);
    if (auto found = handlers_.find(received.name); found != handlers_.end())
      handler = found->second;
  }
  if (!handler) return {.status = 200, .body = "{}"};
  return handler(received.arguments);
}

void RoutingHttpClient::route(const std::string& name, Handler handler) {
  std::lock_guard lock(mutex_);
  handlers_[name] = std::move(handler);
}

void RoutingHttpClient::reply(const std::string& name, const nlohmann::json& reply) {
  route(name, [body = reply.dump()](const nlohmann::json&) {
    return platform::HttpResponse{.status = 200, .body = body};
  });
}

void RoutingHttpClient::refuse(const std::string& name) {
  route(name, [](const nlohmann::json&) {
    return platform::HttpResponse{.status = 0, .error = "connection refused"};
  });
}

std::vector<RoutingHttpClient::Received> RoutingHttpClient::received() const {
  std::lock_guard lock(mutex_);
  return received_;
}

std::vector<std::string> RoutingHttpClient::names() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> names;
  for (const auto& received : received_) names.push_back(received.name);
  return names;
}

std::size_t RoutingHttpClient::count(const std::string& name) const {
  auto all = names();
  return static_cast<std::size_t>(std::count(all.begin(), all.end(), name));
}

}  // namespace zivora::test
