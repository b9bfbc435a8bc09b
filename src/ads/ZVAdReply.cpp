#include "ads/ZVAdReply.h"

#include <nlohmann/json.hpp>

#include "util/JsonConvert.h"
#include "zivora/ZVConstants.h"

namespace zivora {

std::optional<std::string> ZVAdReply::textOf(const nlohmann::json& object, const char* key) {
  if (!JsonConvert::has(object, key) || !object.at(key).is_string()) return std::nullopt;
  return object.at(key).get<std::string>();
}

std::string ZVAdReply::describeOf(const nlohmann::json& object, const char* key) {
  if (!JsonConvert::has(object, key) || object.at(key).is_null()) return "";
  return JsonConvert::textValue(object.at(key));
}

std::optional<std::uint64_t> ZVAdReply::error(const nlohmann::json& ad) {
  if (!JsonConvert::has(ad, TS_API_ERROR)) return std::nullopt;
  return static_cast<std::uint64_t>(JsonConvert::integerValue(ad.at(TS_API_ERROR)));
}

float ZVAdReply::skipAfter(const nlohmann::json& ad) {
  if (!JsonConvert::has(ad, TS_API_SKIP_VIDEO) || !JsonConvert::isNumber(ad.at(TS_API_SKIP_VIDEO)))
    return -1.0f;
  return ad.at(TS_API_SKIP_VIDEO).get<float>();
}

bool ZVAdReply::soundEnable(const nlohmann::json& ad) {
  if (!JsonConvert::has(ad, TS_API_SOUND_ENABLE)) return true;
  return JsonConvert::boolValue(ad.at(TS_API_SOUND_ENABLE));
}

std::optional<std::string> ZVAdReply::imageURL(const nlohmann::json& ad) {
  return textOf(ad, TS_API_IMAGE_URL);
}

std::optional<std::string> ZVAdReply::videoURL(const nlohmann::json& ad) {
  return textOf(ad, TS_API_VIDEO_URL);
}

std::optional<std::string> ZVAdReply::currencyIconURL(const nlohmann::json& ad) {
  if (!JsonConvert::has(ad, "motivationInfo")) return std::nullopt;
  const auto& info = ad.at("motivationInfo");
  if (!info.is_object()) return std::nullopt;
  return textOf(info, "currencyIconURL");
}

std::string ZVAdReply::adId(const nlohmann::json& ad) { return describeOf(ad, TS_API_AD_ID); }

std::string ZVAdReply::targetURL(const nlohmann::json& ad) {
  return describeOf(ad, TS_API_KEY_TARGET_URL);
}

bool ZVAdReply::dontOverrideRedirection(const nlohmann::json& ad) {
  return JsonConvert::has(ad, TS_API_DONT_OVERRIDE_REDIRECTION) &&
         JsonConvert::boolValue(ad.at(TS_API_DONT_OVERRIDE_REDIRECTION));
}

bool ZVAdReply::isValid(const nlohmann::json& ad) {
  return JsonConvert::has(ad, TS_API_VIDEO_URL) && JsonConvert::has(ad, TS_API_IMAGE_URL);
}

}  // namespace zivora
