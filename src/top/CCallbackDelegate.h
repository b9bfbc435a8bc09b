#pragma once

#include "zivora/ZivoraDelegate.h"
#include "zivora/zivora_c.h"

namespace zivora {

// Turns the C interface's table of function pointers into a delegate: each
// callback the host left NULL does nothing.
class CCallbackDelegate final : public ZivoraDelegate {
 public:
  // Copies `callbacks`; a table from an older, smaller struct_size keeps the
  // members it did not have at NULL.
  explicit CCallbackDelegate(const zivora_callbacks& callbacks);

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
  using PlacementCallback = void (*)(void*, const char*);
  void call(PlacementCallback callback, const std::string& placement) const;

  zivora_callbacks callbacks_{};
};

}  // namespace zivora
