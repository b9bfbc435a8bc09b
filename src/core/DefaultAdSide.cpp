#include "core/DefaultAdSide.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "ads/MotivationRewardManager.h"
#include "events/ZVEventSender.h"
#include "util/ZVLog.h"
#include "zivora/ZivoraDelegate.h"

namespace zivora {

namespace {

// A server-supplied name may only ever name a file directly in the cache.
bool isSinglePathComponent(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

// Unlinks `name` inside `directory` only when it is a regular file; a
// symlink is never followed and a directory never removed.
bool removeRegularFile(const std::filesystem::path& directory, const std::string& name) {
  int dir = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
  if (dir < 0) return false;
  struct stat info {};
  bool removed = ::fstatat(dir, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
                 S_ISREG(info.st_mode) && ::unlinkat(dir, name.c_str(), 0) == 0;
  ::close(dir);
  return removed;
}

}  // namespace

DefaultAdSide::DefaultAdSide(std::filesystem::path cacheDirectory,
                             std::shared_ptr<ZivoraDelegate> delegate)
    : cacheDirectory_(std::move(cacheDirectory)),
      delegate_(std::move(delegate)),
      rewards_(std::make_shared<MotivationRewardManager>(delegate_, [](const auto& ids) {
        if (auto sender = ZVEventSender::shared()) sender->removeMotivatedRewards(ids);
      })) {}

void DefaultAdSide::startUp() {
  // The event sender first: events stored by earlier runs wait in its file.
  ZVEventSender::shared();
  std::error_code error;
  std::filesystem::create_directories(cacheDirectory_, error);
  if (error) ZVLog::LogWarning("[ZVResourceManager][init] Can't create cache directory");
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

void DefaultAdSide::removeFile(const std::string& fileName) {
  ZVLog::LogWarning("[ZVResourceManager][removeFile] file: {}", fileName);
  if (!isSinglePathComponent(fileName) || !removeRegularFile(cacheDirectory_, fileName)) {
    ZVLog::LogWarning("[ZVResourceManager][removeFile] Warning! Can't remove file: {}", fileName);
  }
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
