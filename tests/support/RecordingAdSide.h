#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "top/AdSide.h"

namespace zivora::test {

// Records what the facade asks of the ad side as lines such as
// "show:placement", "cache:placement", "removeFile:name".
class RecordingAdSide final : public AdSide {
 public:
  void startUp() override { record("startUp"); }
  void serverConnected() override { record("serverConnected"); }
  void purchaseEvent(double amount, const std::string& currency, const std::string& transactionId,
                     const std::optional<std::string>& receipt) override;
  void unreserveAll(const std::string& fileName) override { record("unreserveAll:" + fileName); }
  void removeFile(const std::string& fileName) override { record("removeFile:" + fileName); }
  void redeliverRewards() override { record("redeliverRewards"); }
  void newVideoManager() override { record("newVideoManager"); }
  void showVideo(const std::string& placement) override { record("show:" + placement); }
  void cacheVideo(const std::string& placement) override { record("cache:" + placement); }
  bool isReadyVideo(const std::string& placement) override;
  bool isRequestShow() override;
  void requestMotivatedRewards() override { record("requestMotivatedRewards"); }
  void removeMotivatedRewards(const std::vector<std::string>& rewardIds) override;

  std::vector<std::string> calls() const;
  // Only the calls that start with `prefix`.
  std::vector<std::string> calls(const std::string& prefix) const;
  // Waits until a call starting with `prefix` was recorded; false on timeout.
  bool waitForCall(const std::string& prefix, std::chrono::milliseconds timeout) const;
  void setShowing(bool showing);
  void setReady(bool ready);

 private:
  void record(std::string call);

  mutable std::mutex mutex_;
  mutable std::condition_variable recorded_;
  std::vector<std::string> calls_;
  bool showing_ = false;
  bool ready_ = false;
};

}  // namespace zivora::test
