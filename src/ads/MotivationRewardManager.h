#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "zivora/ZVMotivatedRewardInfo.h"

namespace zivora {

class ZivoraDelegate;

// Fetches the rewards the ad server holds for this user, hands them to the
// host, and has the accepted ones removed so they are not paid twice.
// Requests and retries run on the global queue, host callbacks on the main
// queue. A transport failure or an empty reply is retried 3 times, one
// second apart; a server error is passed on at once.
class MotivationRewardManager : public std::enable_shared_from_this<MotivationRewardManager> {
 public:
  // Queues the removal of rewards on the server (through the event queue,
  // so that it survives losing the network and restarts).
  using Remover = std::function<void(const std::vector<std::string>& rewardIds)>;

  MotivationRewardManager(std::shared_ptr<ZivoraDelegate> delegate, Remover remover);

  // Starts one fetch and returns at once.
  void requestMotivatedRewards();
  // Drops empty identifiers; nothing is reported to the host.
  void removeMotivatedRewards(const std::vector<std::string>& rewardIds);

  static constexpr std::int32_t kMaxRetries = 3;

 private:
  void fetch();
  void receiveResponse(const nlohmann::json* response);
  void repeateRequestAfterError();
  void receiveMotivatedRewards(std::vector<ZVMotivatedRewardInfo> rewards);
  void failRequestRewards(std::int64_t error);

  std::shared_ptr<ZivoraDelegate> delegate_;
  Remover remover_;
  // Shared by overlapping fetches, which may count their retries together.
  std::atomic<std::int32_t> requestCount_{0};
};

}  // namespace zivora
