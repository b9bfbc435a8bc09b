#include "top/DefaultAdSide.h"

#include "ads/MotivationRewardManager.h"
#include "ads/RewardLedger.h"
#include "ads/ZVVideoManager.h"
#include "events/ZVEventSender.h"
#include "platform/dispatch/Runtime.h"
#include "resources/ZVAssetLoaderDelegate.h"
#include "resources/ZVCacheManager.h"
#include "resources/ZVFilesSavedValidator.h"
#include "resources/ZVReserveManager.h"
#include "resources/ZVResourceManager.h"
#include "sdk/Context.h"
#include "ui/Display.h"
#include "util/Guard.h"
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
  // Reads the rewards an earlier run left unacknowledged, here on the
  // start-up queue rather than on the first reward's way.
  if (auto ledger = RewardLedger::shared()) ledger->open();
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

void DefaultAdSide::redeliverRewards() {
  if (auto ledger = RewardLedger::shared())
    ledger->redeliverPending(RewardLedger::toHost(delegate_));
}

void DefaultAdSide::newVideoManager() {
  auto manager = std::make_shared<ZVVideoManager>(delegate_);
  std::lock_guard lock(mutex_);
  videoManager_ = std::move(manager);
}

std::shared_ptr<ZVVideoManager> DefaultAdSide::videoManager() const {
  std::lock_guard lock(mutex_);
  return videoManager_;
}

void DefaultAdSide::showVideo(const std::string& placement) {
  if (auto manager = videoManager()) manager->showVideo(placement);
}

void DefaultAdSide::cacheVideo(const std::string& placement) {
  if (auto manager = videoManager()) manager->cacheVideo(placement);
}

bool DefaultAdSide::isReadyVideo(const std::string& placement) {
  auto manager = videoManager();
  return manager && manager->isReadyVideo(placement);
}

bool DefaultAdSide::isRequestShow() {
  auto manager = videoManager();
  return manager && manager->isRequestShow();
}

void DefaultAdSide::requestMotivatedRewards() { rewards_->requestMotivatedRewards(); }

void DefaultAdSide::removeMotivatedRewards(const std::vector<std::string>& rewardIds) {
  rewards_->removeMotivatedRewards(rewardIds);
}

}  // namespace zivora
