#include "support/RecordingAdSide.h"

#include <fmt/format.h>

namespace zivora::test {

void RecordingAdSide::purchaseEvent(double amount, const std::string& currency,
                                    const std::string& transactionId,
                                    const std::optional<std::string>& receipt) {
  record(fmt::format("purchase:{}:{}:{}{}", amount, currency, transactionId,
                     receipt ? ":" + *receipt : std::string()));
}

bool RecordingAdSide::isReadyVideo(const std::string& placement) {
  record("isReady:" + placement);
  std::lock_guard lock(mutex_);
  return ready_;
}

bool RecordingAdSide::isRequestShow() {
  std::lock_guard lock(mutex_);
  return showing_;
}

void RecordingAdSide::removeMotivatedRewards(const std::vector<std::string>& rewardIds) {
  record(fmt::format("removeMotivatedRewards:{}", fmt::join(rewardIds, ",")));
}

std::vector<std::string> RecordingAdSide::calls() const {
  std::lock_guard lock(mutex_);
  return calls_;
}

std::vector<std::string> RecordingAdSide::calls(const std::string& prefix) const {
  std::vector<std::string> matching;
  for (const auto& call : calls()) {
    if (call.rfind(prefix, 0) == 0) matching.push_back(call);
  }
  return matching;
}

void RecordingAdSide::setShowing(bool showing) {
  std::lock_guard lock(mutex_);
  showing_ = showing;
}

void RecordingAdSide::setReady(bool ready) {
  std::lock_guard lock(mutex_);
  ready_ = ready;
}

bool RecordingAdSide::waitForCall(const std::string& prefix,
                                  std::chrono::milliseconds timeout) const {
  std::unique_lock lock(mutex_);
  return recorded_.wait_for(lock, timeout, [&] {
    for (const auto& call : calls_) {
      if (call.rfind(prefix, 0) == 0) return true;
    }
    return false;
  });
}

void RecordingAdSide::record(std::string call) {
  {
    std::lock_guard lock(mutex_);
    calls_.push_back(std::move(call));
  }
  recorded_.notify_all();
}

}  // namespace zivora::test
