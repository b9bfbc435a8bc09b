#include "core/DefaultAdSide.h"

#include "ads/MotivationRewardManager.h"
#include "events/ZVEventSender.h"
#include "resources/ZVAssetLoaderDelegate.h"
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
        if (auto sender = ZVEventSender::shared()) sender->removeMotivatedRewards(ids);
      })) {}

void DefaultAdSide::startUp() {
  // The event sender first: events stored by earlier runs wait in its file.
  ZVEventSender::shared();
  if (auto resources = ZVResourceManager::defaultManager()) {
    // The player reads a video still downloading through its progressive loader.
    resources->setAssetLoaderFactory(
        [](const std::string& name) { return std::make_shared<ZVAssetLoaderDelegate>(name); });
  }
  ZVFilesSavedValidator::defaultValidator();
  ZVReserveManager::defaultManager();
  ZVCacheManager::defaultManager();
}

void DefaultAdSide::serverConnected() {
  if (auto sender = ZVEventSender::shared()) sender->serverConnected();
}

void DefaultAdSide::purchaseEvent(double amount, const std::string& currency,
                                  const std::string& transactionId,
                                  const std::optional<std::string>& receipt) {
  auto sender = ZVEventSender::shared();
  if (!sender) return;
  if (receipt)
    sender->purchase(amount, currency, transactionId, receipt);
  else
    sender->purchaseEvent(amount, currency, transactionId);
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
