#include "top/CCallbackDelegate.h"

#include <algorithm>
#include <cstring>

namespace zivora {

CCallbackDelegate::CCallbackDelegate(const zivora_callbacks& callbacks) {
  std::memcpy(&callbacks_, &callbacks, std::min(callbacks.struct_size, sizeof(callbacks_)));
  callbacks_.struct_size = sizeof(callbacks_);
}

void CCallbackDelegate::call(PlacementCallback callback, const std::string& placement) const {
  if (callback) callback(callbacks_.user_data, placement.c_str());
}

void CCallbackDelegate::videoDidCache(const std::string& placement) {
  call(callbacks_.video_did_cache, placement);
}

void CCallbackDelegate::videoDidFailToLoad(const std::string& placement, std::uint64_t error) {
  if (callbacks_.video_did_fail_to_load) {
    callbacks_.video_did_fail_to_load(callbacks_.user_data, placement.c_str(), error);
  }
}

void CCallbackDelegate::videoWindowWillDisplay(const std::string& placement) {
  call(callbacks_.video_window_will_display, placement);
}

void CCallbackDelegate::videoWindowDidDisplay(const std::string& placement) {
  call(callbacks_.video_window_did_display, placement);
}

void CCallbackDelegate::videoDidDismiss(const std::string& placement) {
  call(callbacks_.video_did_dismiss, placement);
}

void CCallbackDelegate::videoWindowWillClose(const std::string& placement) {
  call(callbacks_.video_window_will_close, placement);
}

void CCallbackDelegate::videoWindowDidClose(const std::string& placement) {
  call(callbacks_.video_window_did_close, placement);
}

void CCallbackDelegate::videoPostViewDidClick(const std::string& placement) {
  call(callbacks_.video_post_view_did_click, placement);
}

void CCallbackDelegate::videoReceiveReward(const std::string& placement) {
  call(callbacks_.video_receive_reward, placement);
}

void CCallbackDelegate::videoReceiveReward(const std::string& placement,
                                           const std::string& rewardId) {
  if (!callbacks_.video_receive_reward_with_id) {
    videoReceiveReward(placement);
    return;
  }
  callbacks_.video_receive_reward_with_id(callbacks_.user_data, placement.c_str(),
                                          rewardId.c_str());
}

bool CCallbackDelegate::receiveMotivatedRewards(const std::vector<ZVMotivatedRewardInfo>& rewards) {
  if (!callbacks_.receive_motivated_rewards) return false;
  std::vector<zivora_reward> table;
  table.reserve(rewards.size());
  for (const auto& reward : rewards) {
    table.push_back({reward.rewardId().c_str(), reward.appName().c_str(), reward.amountOfReward()});
  }
  return callbacks_.receive_motivated_rewards(callbacks_.user_data, table.data(), table.size()) !=
         0;
}

void CCallbackDelegate::failedRequestMotivatedRewards(std::uint64_t error) {
  if (callbacks_.failed_request_motivated_rewards) {
    callbacks_.failed_request_motivated_rewards(callbacks_.user_data, error);
  }
}

}  // namespace zivora
