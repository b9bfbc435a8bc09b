#pragma once

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "zivora/ZivoraDelegate.h"

namespace demo {

// The host's side of the SDK: every callback is printed with its time since
// start and kept, so the demo can wait for one and write them all as JSON.
class CallbackLog final : public zivora::ZivoraDelegate {
 public:
  struct Entry {
    double seconds;
    std::string callback;
    std::string argument;
  };

  void videoDidCache(const std::string& placement) override;
  void videoDidFailToLoad(const std::string& placement, std::uint64_t error) override;
  void videoWindowWillDisplay(const std::string& placement) override;
  void videoWindowDidDisplay(const std::string& placement) override;
  void videoDidDismiss(const std::string& placement) override;
  void videoWindowWillClose(const std::string& placement) override;
  void videoWindowDidClose(const std::string& placement) override;
  void videoPostViewDidClick(const std::string& placement) override;
  using zivora::ZivoraDelegate::videoReceiveReward;
  // The reward with its id: a reward owed from an earlier run comes again
  // with the id it had then, so a game pays each id once.
  void videoReceiveReward(const std::string& placement, const std::string& rewardId) override;
  // Accepts every reward, so the SDK has them removed from the server.
  bool receiveMotivatedRewards(const std::vector<zivora::ZVMotivatedRewardInfo>& rewards) override;
  void failedRequestMotivatedRewards(std::uint64_t error) override;

  // Waits until `callback` (or, if given, `failure`) has been heard; true
  // for `callback`.
  bool waitFor(const std::string& callback, std::chrono::seconds limit,
               const std::string& failure = "videoDidFailToLoad");
  bool heard(const std::string& callback) const;
  std::vector<Entry> entries() const;
  void writeJson(const std::filesystem::path& file) const;

 private:
  void add(std::string callback, std::string argument);

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Entry> entries_;
};

// Prints a line with the time since the demo started.
void step(const std::string& text);
double secondsSinceStart();

}  // namespace demo
