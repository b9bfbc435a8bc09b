#pragma once

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "platform/HttpClient.h"

namespace zivora::test {

// Plays the server: records every request and answers it from a route set
// for its name (the one member of a signed form's Params document, or the
// URL of a plain request), else from a script, else with 200 "{}".
class FakeHttpClient final : public platform::HttpClient {
 public:
  using Headers = std::vector<std::pair<std::string, std::string>>;
  using Handler = std::function<platform::HttpResponse(const nlohmann::json& arguments)>;

  platform::HttpResponse perform(const platform::HttpRequest& request) override;

  void enqueue(platform::HttpResponse response);
  void enqueue(long status, std::string body, Headers headers = {});
  // A request that got no response at all (status 0).
  void enqueueFailure(std::string error);

  // Answers `name` (a request name or a URL) with `handler` from now on.
  void route(const std::string& name, Handler handler);
  // Answers `name` with a 200 and `reply` from now on.
  void reply(const std::string& name, const nlohmann::json& reply);
  // Fails the transport (no response) for `name` from now on.
  void refuse(const std::string& name);

  std::vector<platform::HttpRequest> requests() const;
  // The document the request's signed form body ("Params=...&md5=...")
  // carried, percent-decoded; null for any other body.
  static nlohmann::json paramsOf(const platform::HttpRequest& request);
  nlohmann::json lastParams() const { return paramsOf(requests().back()); }
  // How many requests went to `name`.
  std::size_t count(const std::string& name) const;

 private:
  static std::string nameOf(const platform::HttpRequest& request);

  mutable std::mutex mutex_;
  std::deque<platform::HttpResponse> script_;
  std::map<std::string, Handler> routes_;
  std::vector<platform::HttpRequest> requests_;
};

}  // namespace zivora::test
