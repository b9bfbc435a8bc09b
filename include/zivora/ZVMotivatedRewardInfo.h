#pragma once

#include <cstdint>
#include <string>

#include "zivora/Export.h"

namespace zivora {

// One reward the ad server granted the user (for installing and launching an
// advertised application). Immutable once made.
class ZIVORA_API ZVMotivatedRewardInfo {
 public:
  ZVMotivatedRewardInfo(std::string rewardId, std::string appName, std::int32_t amountOfReward)
      : rewardId_(std::move(rewardId)),
        appName_(std::move(appName)),
        amountOfReward_(amountOfReward) {}

  // The server's identifier; what is sent back to remove the reward.
  const std::string& rewardId() const noexcept { return rewardId_; }
  // The advertised application that earned it.
  const std::string& appName() const noexcept { return appName_; }
  // The amount of the host's currency.
  std::int32_t amountOfReward() const noexcept { return amountOfReward_; }

 private:
  std::string rewardId_;
  std::string appName_;
  std::int32_t amountOfReward_;
};

}  // namespace zivora
