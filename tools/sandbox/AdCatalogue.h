#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace zivora::sandbox {

// The ads that "getVideo" answers, one per placement name. The built-in
// placements:
//   "short"      3 s video (also every placement without an entry)
//   "long"       30 s video
//   "large"      a video of more than 5 MiB
//   "motivated"  3 s video with "motivationInfo"; watching it to the end
//                grants a reward
// Every ad's "targetURL" goes through the sandbox's tracker, so the SDK's
// tracker test fires and the tracker's 302 leads to a landing page.
class AdCatalogue {
 public:
  static constexpr const char* kDefaultPlacement = "short";

  // `fileUrl` and `baseUrl` give the server's addresses, asked on each
  // request so that they name the port actually bound.
  AdCatalogue(std::function<std::string(const std::string& name)> fileUrl,
              std::function<std::string()> baseUrl);

  // Replaces or adds the ad of a placement; its URLs are kept as given.
  void setAd(const std::string& placement, nlohmann::json ad);
  // The ad for a placement: its own, else the default one.
  nlohmann::json adFor(const std::string& placement) const;
  // The ad with this "adId" among all placements, if any.
  std::optional<nlohmann::json> adWithId(const std::string& adId) const;

  // The tracker address of an ad, through the tracker's own path:
  // BASE/track/track.zivora-attribution.net/<adId>
  std::string trackerUrl(const std::string& adId) const;
  // BASE/landing/<adId>
  std::string landingUrl(const std::string& adId) const;

 private:
  nlohmann::json builtIn(const std::string& placement) const;
  nlohmann::json video(const std::string& adId, const char* file, double skipAfter) const;

  std::function<std::string(const std::string&)> fileUrl_;
  std::function<std::string()> baseUrl_;
  mutable std::mutex mutex_;
  std::map<std::string, nlohmann::json> custom_;
};

}  // namespace zivora::sandbox
