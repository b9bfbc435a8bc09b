#include "RewardLedger.h"

#include <algorithm>

namespace zivora::sandbox {

std::string RewardLedger::grant(std::string appName, std::int32_t amount) {
  std::lock_guard lock(mutex_);
  std::string id = "reward-" + std::to_string(++granted_);
  rewards_.push_back({id, std::move(appName), amount});
  return id;
}

std::size_t RewardLedger::remove(const std::vector<std::string>& rewardIds) {
  std::lock_guard lock(mutex_);
  return std::erase_if(rewards_, [&](const Reward& reward) {
    return std::find(rewardIds.begin(), rewardIds.end(), reward.rewardId) != rewardIds.end();
  });
}

std::vector<RewardLedger::Reward> RewardLedger::rewards() const {
  std::lock_guard lock(mutex_);
  return rewards_;
}

nlohmann::json RewardLedger::reply() const {
  nlohmann::json list = nlohmann::json::array();
  for (const Reward& reward : rewards()) {
    list.push_back(
        {{"rewardId", reward.rewardId}, {"appName", reward.appName}, {"reward", reward.amount}});
  }
  return {{"rewards", list}};
}

}  // namespace zivora::sandbox
