#pragma once

#include <memory>
#include <mutex>

#include "zivora/ZivoraDelegate.h"

namespace zivora {

// The one way the SDK calls the host: every callback is recorded in
// analytics, forwarded to the host's delegate when one is set, and shielded
// from exceptions thrown by the host's code. Holds the host's delegate
// strongly; setDelegate() may race with a callback, which then sees the old
// or the new delegate. Callbacks run on the caller's thread.
class InvokeDelegateHelper final : public ZivoraDelegate {
 public:
  std::shared_ptr<ZivoraDelegate> delegate() const;
  void setDelegate(std::shared_ptr<ZivoraDelegate> delegate);

  void videoDidCache(const std::string& placement) override;
  void videoDidFailToLoad(const std::string& placement, std::uint64_t error) override;
  void videoWindowWillDisplay(const std::string& placement) override;
  void videoWindowDidDisplay(const std::string& placement) override;
  void videoDidDismiss(const std::string& placement) override;
  void videoWindowWillClose(const std::string& placement) override;
  void videoWindowDidClose(const std::string& placement) override;
  void videoPostViewDidClick(const std::string& placement) override;
  void videoReceiveReward(const std::string& placement) override;
  void videoReceiveReward(const std::string& placement, const std::string& rewardId) override;
  bool receiveMotivatedRewards(const std::vector<ZVMotivatedRewardInfo>& rewards) override;
  void failedRequestMotivatedRewards(std::uint64_t error) override;

 private:
  // Reports `shortName`, then calls `call` with the host's delegate if set.
  template <class R, class Call>
  R forward(const char* shortName, R neutral, Call&& call);
  template <class Call>
  void forwardVoid(const char* shortName, Call&& call);

  mutable std::mutex mutex_;
  std::shared_ptr<ZivoraDelegate> delegate_;
};

}  // namespace zivora
