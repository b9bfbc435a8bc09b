#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <vector>

#include "zivora/ZVMotivatedRewardInfo.h"

namespace zivora {

// The "getMotivatedRewards" reply as the host hears it: either the server's
// error code or the granted rewards. Pure, so that any reply may be tried
// on it.
struct ZVMotivatedRewardsReply {
  std::optional<std::int64_t> error;
  std::vector<ZVMotivatedRewardInfo> rewards;

  // Throws (a std::exception) for a reply that is not an object, an
  // "error" or a "rewards" that has no reading; the caller reports those
  // as a bad response. A reward without a text id or name gets "", one
  // without an amount 0.
  static ZVMotivatedRewardsReply read(const nlohmann::json& response);
};

}  // namespace zivora
