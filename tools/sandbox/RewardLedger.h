#pragma once

#include <cstdint>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace zivora::sandbox {

// The motivated rewards the sandbox has granted and not yet seen removed.
// Thread-safe: request handlers run on httplib's worker threads.
class RewardLedger {
 public:
  struct Reward {
    std::string rewardId;
    std::string appName;
    std::int32_t amount = 0;
  };

  // Adds a reward and returns its new identifier ("reward-1", "reward-2" ...).
  std::string grant(std::string appName, std::int32_t amount);
  // Drops the rewards whose identifiers are listed; unknown ones are ignored.
  // Returns how many were removed.
  std::size_t remove(const std::vector<std::string>& rewardIds);
  std::vector<Reward> rewards() const;

  // The "getMotivatedRewards" reply: {"rewards": [{"rewardId", "appName",
  // "reward"}, ...]} in the order of granting.
  nlohmann::json reply() const;

 private:
  mutable std::mutex mutex_;
  std::vector<Reward> rewards_;
  std::uint64_t granted_ = 0;
};

}  // namespace zivora::sandbox
