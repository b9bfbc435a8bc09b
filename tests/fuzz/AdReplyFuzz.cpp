// Any body as the ad server's answer to an ad request, read field by field
// the way the placement controller reads it. A reader answers or throws
// ZVException (its caller's guard path), nothing else; the answers agree
// with what the reply holds; and every address names a cache file that is
// a single plain path component.
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "ads/ZVAdReply.h"
#include "resources/ZVResourceManager.h"
#include "util/JsonConvert.h"
#include "util/ZVException.h"

using namespace zivora;

namespace {

template <class Read>
auto attempt(Read read) -> std::optional<decltype(read())> {
  try {
    return read();
  } catch (const ZVException&) {
    return std::nullopt;
  }
}

void expectCacheName(const std::optional<std::string>& url) {
  if (!url) return;
  const std::string name = ZVResourceManager::convertURLToFileName(*url);
  const auto dot = name.find('.');
  if (dot != 32 || name.find_first_of(std::string_view("/\0", 2)) != std::string::npos ||
      name.size() > 32 + 1 + 16)
    __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto reply =
      JsonConvert::parseObject(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!reply) return 0;
  const nlohmann::json& ad = *reply;

  if (auto error = attempt([&] { return ZVAdReply::error(ad); }))
    if (error->has_value() != ad.contains("error")) __builtin_trap();
  const float skip = ZVAdReply::skipAfter(ad);
  if (skip != -1.0f && !JsonConvert::isNumber(ad.value("skipVideo", nlohmann::json())))
    __builtin_trap();
  if (auto sound = attempt([&] { return ZVAdReply::soundEnable(ad); }))
    if (!ad.contains("soundEnable") && !*sound) __builtin_trap();

  const auto image = ZVAdReply::imageURL(ad);
  if (image.has_value() != (ad.contains("imageURL") && ad["imageURL"].is_string()))
    __builtin_trap();
  const auto video = ZVAdReply::videoURL(ad);
  expectCacheName(image);
  expectCacheName(video);
  expectCacheName(ZVAdReply::currencyIconURL(ad));
  if (video && !ZVAdReply::isValid(ad) && image) __builtin_trap();

  attempt([&] { return ZVAdReply::adId(ad); });
  attempt([&] { return ZVAdReply::targetURL(ad); });
  attempt([&] { return ZVAdReply::dontOverrideRedirection(ad); });
  return 0;
}
