#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/HttpClient.h"

namespace zivora::test {

// Plays the ad server by request: a signed POST is routed on its request
// name (the one member of its Params document), anything else on its URL.
// Unrouted requests get status 200 and "{}". Every request is recorded with
// its name and its decoded arguments.
class RoutingHttpClient final : public platform::HttpClient {
 public:
  using Handler = std::function<platform::HttpResponse(const nlohmann::json& arguments)>;

  struct Received {
    std::string name;  // the request name, or the URL of a plain request
    nlohmann::json arguments;
    platform::HttpRequest request;
  };

  platform::HttpResponse perform(const platform::HttpRequest& request) override;

  // Answers `name` (a request name or a URL) with `handler` from now on.
  void route(const std::string& name, Handler handler);
  // Answers `name` with a 200 and `reply` from now on.
  void reply(const std::string& name, const nlohmann::json& reply);
  // Fails the transport (no response) for `name` from now on.
  void refuse(const std::string& name);

  std::vector<Received> received() const;
  // The names of the received requests, in order.
  std::vector<std::string> names() const;
  std::size_t count(const std::string& name) const;

 private:
  mutable std::mutex mutex_;
  std::map<std::string, Handler> handlers_;
  std::vector<Received> received_;
};

}  // namespace zivora::test
