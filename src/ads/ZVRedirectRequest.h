#pragma once

#include <functional>
#include <string>

#include "platform/HttpClient.h"

namespace zivora {

// Asks an address once, without following redirects, so that the caller
// sees a tracker's redirect answer (status and "Location") itself.
class ZVRedirectRequest {
 public:
  // The response (status 0 and `error` set when none came).
  using Completion = std::function<void(const platform::HttpResponse& response)>;

  // The attribution tracker whose addresses are resolved by hand before
  // opening (a plain substring test on the ad's target address).
  static constexpr const char* kTrackerHost = "track.zivora-attribution.net";

  explicit ZVRedirectRequest(std::string url);

  // Runs the request on the global queue and calls `completion` there.
  void start(Completion completion);

  const std::string& url() const { return url_; }

 private:
  std::string url_;
};

}  // namespace zivora
