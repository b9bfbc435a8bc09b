#pragma once

#include <memory>
#include <mutex>

#include "top/AdSide.h"

namespace zivora {

class MotivationRewardManager;
class ZVVideoManager;
class ZivoraDelegate;

// The ad side of this build: it queues ad events (purchases, reward
// removals) through the event sender, brings up the resource cache
// (downloads, completed-file records, reservations, cache accounting),
// routes placements to the placement registry and fetches motivated
// rewards.
class DefaultAdSide final : public AdSide {
 public:
  explicit DefaultAdSide(std::shared_ptr<ZivoraDelegate> delegate);

  void startUp() override;
  void serverConnected() override;
  void purchaseEvent(double amount, const std::string& currency, const std::string& transactionId,
                     const std::optional<std::string>& receipt) override;
  void unreserveAll(const std::string& fileName) override;
  void removeFile(const std::string& fileName) override;
  void redeliverRewards() override;
  void newVideoManager() override;
  void showVideo(const std::string& placement) override;
  void cacheVideo(const std::string& placement) override;
  bool isReadyVideo(const std::string& placement) override;
  bool isRequestShow() override;
  void requestMotivatedRewards() override;
  void removeMotivatedRewards(const std::vector<std::string>& rewardIds) override;

 private:
  std::shared_ptr<ZVVideoManager> videoManager() const;

  std::shared_ptr<ZivoraDelegate> delegate_;
  mutable std::mutex mutex_;
  std::shared_ptr<ZVVideoManager> videoManager_;
  std::shared_ptr<MotivationRewardManager> rewards_;
};

}  // namespace zivora
