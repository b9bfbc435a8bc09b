#include "AdCatalogue.h"

#include <array>

#include "SandboxMedia.h"

namespace zivora::sandbox {
namespace {

using nlohmann::json;

constexpr const char* kTrackerHost = "track.zivora-attribution.net";
constexpr std::array<const char*, 4> kBuiltInPlacements{"short", "long", "large", "motivated"};

json motivationInfo(const std::string& iconUrl) {
  return {{"currencyIconURL", iconUrl},
          {"backgroundColor", "#d0000000"},
          {"title", "Earn 10 gems"},
          {"titleColor", "#ffffff"},
          {"description", "Install and launch Sandbox Quest"},
          {"descriptionColor", "#828282"},
          {"buttonText", "Install"},
          {"buttonColor", "#30B236"},
          {"buttonTextColor", "#ffffff"}};
}

}  // namespace

AdCatalogue::AdCatalogue(std::function<std::string(const std::string&)> fileUrl,
                         std::function<std::string()> baseUrl)
    : fileUrl_(std::move(fileUrl)), baseUrl_(std::move(baseUrl)) {}

void AdCatalogue::setAd(const std::string& placement, json ad) {
  std::lock_guard lock(mutex_);
  custom_[placement] = std::move(ad);
}

json AdCatalogue::adFor(const std::string& placement) const {
  {
    std::lock_guard lock(mutex_);
    if (auto found = custom_.find(placement); found != custom_.end()) return found->second;
  }
  return builtIn(placement);
}

std::optional<json> AdCatalogue::adWithId(const std::string& adId) const {
  {
    std::lock_guard lock(mutex_);
    for (const auto& [placement, ad] : custom_) {
      if (ad.is_object() && ad.value("adId", json()) == adId) return ad;
    }
  }
  for (const char* placement : kBuiltInPlacements) {
    json ad = builtIn(placement);
    if (ad["adId"] == adId) return ad;
  }
  return std::nullopt;
}

std::string AdCatalogue::trackerUrl(const std::string& adId) const {
  return baseUrl_() + "/track/" + kTrackerHost + "/" + adId;
}

std::string AdCatalogue::landingUrl(const std::string& adId) const {
  return baseUrl_() + "/landing/" + adId;
}

json AdCatalogue::video(const std::string& adId, const char* file, double skipAfter) const {
  return {{"adId", adId},
          {"adType", 2},
          {"clickId", "click-" + adId},
          {"videoURL", fileUrl_(file)},
          {"imageURL", fileUrl_(SandboxMedia::kPostVideoImage)},
          {"targetURL", trackerUrl(adId)},
          {"ratio", 16.0 / 9.0},
          {"skipVideo", skipAfter},
          {"soundEnable", true}};
}

json AdCatalogue::builtIn(const std::string& placement) const {
  if (placement == "long") return video("sandbox-long", SandboxMedia::kLongVideo, 5);
  if (placement == "large") return video("sandbox-large", SandboxMedia::kLargeVideo, 5);
  if (placement == "motivated") {
    json ad = video("sandbox-motivated", SandboxMedia::kShortVideo, -1);
    ad.erase("skipVideo");  // a motivated ad is watched to the end
    ad["motivationInfo"] = motivationInfo(fileUrl_(SandboxMedia::kCurrencyIcon));
    return ad;
  }
  return video("sandbox-short", SandboxMedia::kShortVideo, 2);
}

}  // namespace zivora::sandbox
