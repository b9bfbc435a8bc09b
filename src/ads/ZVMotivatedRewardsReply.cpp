#include "ads/ZVMotivatedRewardsReply.h"

#include <nlohmann/json.hpp>

#include "util/JsonConvert.h"
#include "util/ZVException.h"
#include "zivora/ZVConstants.h"

namespace zivora {
namespace {

std::string textOrEmpty(const nlohmann::json& element, const char* key) {
  if (!element.is_object() || !JsonConvert::has(element, key)) return "";
  const auto& value = element.at(key);
  return value.is_string() ? value.get<std::string>() : "";
}

std::int32_t amountOf(const nlohmann::json& element) {
  if (!element.is_object() || !JsonConvert::has(element, TS_API_REWARD)) return 0;
  return static_cast<std::int32_t>(JsonConvert::integerValue(element.at(TS_API_REWARD)));
}

}  // namespace

ZVMotivatedRewardsReply ZVMotivatedRewardsReply::read(const nlohmann::json& response) {
  if (!response.is_object()) throw ZVException("MotivationRewardManager", "reply is not an object");
  ZVMotivatedRewardsReply reply;
  if (JsonConvert::has(response, TS_API_ERROR)) {
    reply.error = JsonConvert::integerValue(response.at(TS_API_ERROR));
    return reply;
  }
  if (!JsonConvert::has(response, TS_API_REWARDS)) return reply;
  const auto& list = response.at(TS_API_REWARDS);
  if (!list.is_array()) throw ZVException("MotivationRewardManager", "\"rewards\" is not an array");
  for (const auto& element : list) {
    reply.rewards.emplace_back(textOrEmpty(element, TS_API_REWARD_ID),
                               textOrEmpty(element, TS_API_APP_NAME), amountOf(element));
  }
  return reply;
}

}  // namespace zivora
