#include "core/DefaultAdSide.h"

#include "ads/MotivationRewardManager.h"
#include "resources/ZVCacheManager.h"
#include "resources/ZVFilesSavedValidator.h"
#include "resources/ZVReserveManager.h"
#include "resources/ZVResourceManager.h"
#include "util/ZVLog.h"
#include "zivora/ZivoraDelegate.h"

namespace zivora {

DefaultAdSide::DefaultAdSide(std::shared_ptr<ZivoraDelegate> delegate)
    : delegate_(std::move(delegate)),
      rewards_(std::make_shared<MotivationRewardManager>(delegate_, [](const auto& ids) {
        ZVLog::LogWarning(
            "[Zivora][removeMotivatedRewards] No event queue in this build; {} "
            "rewards stay on the server",
            ids.size());
      })) {}

void DefaultAdSide::startUp() {
  ZVResourceManager::defaultManager();
  ZVFilesSavedValidator::defaultValidator();
  ZVReserveManager::defaultManager();
  ZVCacheManager::defaultManager();
}

void DefaultAdSide::purchaseEvent(double amount, const std::string& currency, const std::string&,
                                  const std::optional<std::string>&) {
  ZVLog::LogWarning("[Zivora][purchaseEvent] No event queue in this build; dropped {} {}", amount,
                    currency);
}

void DefaultAdSide::unreserveAll(const std::string& fileName) {
  if (auto reserve = ZVReserveManager::defaultManager()) reserve->unreserveAll(fileName);
}

void DefaultAdSide::removeFile(const std::string& fileName) {
  if (auto manager = ZVResourceManager::defaultManager()) manager->removeFile(fileName);
}

void DefaultAdSide::showVideo(const std::string& placement) { unavailable(placement); }

void DefaultAdSide::cacheVideo(const std::string& placement) { unavailable(placement); }

void DefaultAdSide::requestMotivatedRewards() { rewards_->requestMotivatedRewards(); }

void DefaultAdSide::removeMotivatedRewards(const std::vector<std::string>& rewardIds) {
  rewards_->removeMotivatedRewards(rewardIds);
}

void DefaultAdSide::unavailable(const std::string& placement) {
  ZVLog::LogWarning("[ZVVideoManager] No placement layer in this build: {}", placement);
  delegate_->videoDidFailToLoad(placement, ZivoraErrorInitializationFailed);
}

}  // namespace zivora
