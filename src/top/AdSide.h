#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zivora {

// Everything the facade drives beyond the handshake: the event sender, the
// resource and cache managers, the placement registry and the reward
// manager. The facade calls it from its own queue ("com.zivora.main") and
// from the host's thread; implementations marshal their own work.
class AdSide {
 public:
  virtual ~AdSide() = default;

  // Brings up the event sender, the resource manager, the download records,
  // the reservation and cache managers and the reward ledger, in that order.
  virtual void startUp() = 0;
  // The ad server answered: queued ad events may be sent now.
  virtual void serverConnected() = 0;
  // `receipt` is the store's receipt when the host passed one.
  virtual void purchaseEvent(double amount, const std::string& currency,
                             const std::string& transactionId,
                             const std::optional<std::string>& receipt) = 0;

  // Drops every reservation of, then deletes, one cached file. `fileName` is
  // whatever the server listed; implementations touch only a regular file
  // directly inside the cache directory.
  virtual void unreserveAll(const std::string& fileName) = 0;
  virtual void removeFile(const std::string& fileName) = 0;

  // Delivers again the rewards an earlier run earned but whose delivery was
  // never acknowledged; called once the ad server has answered, before any
  // parked or new ad is asked for.
  virtual void redeliverRewards() = 0;
  // Replaces the placement registry (each successful handshake makes a new one).
  virtual void newVideoManager() = 0;
  virtual void showVideo(const std::string& placement) = 0;
  virtual void cacheVideo(const std::string& placement) = 0;
  virtual bool isReadyVideo(const std::string& placement) = 0;
  // An ad is showing or waits to be shown.
  virtual bool isRequestShow() = 0;

  virtual void requestMotivatedRewards() = 0;
  virtual void removeMotivatedRewards(const std::vector<std::string>& rewardIds) = 0;
};

}  // namespace zivora
