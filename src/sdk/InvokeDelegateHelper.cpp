#include "sdk/InvokeDelegateHelper.h"

#include "util/Guard.h"
#include "util/Upcalls.h"

namespace zivora {

std::shared_ptr<ZivoraDelegate> InvokeDelegateHelper::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_;
}

void InvokeDelegateHelper::setDelegate(std::shared_ptr<ZivoraDelegate> delegate) {
  std::shared_ptr<ZivoraDelegate> previous;
  {
    std::lock_guard lock(mutex_);
    previous = std::exchange(delegate_, std::move(delegate));
  }
  // The old delegate may be released here, outside the lock: its destructor
  // is the host's code.
}

template <class R, class Call>
R InvokeDelegateHelper::forward(const char* shortName, R neutral, Call&& call) {
  return guarded("InvokeDelegateHelper", shortName, neutral, [&]() -> R {
    upcalls::reporter().sendInvokeDelegate(shortName);
    auto host = delegate();
    if (!host) return neutral;
    // A callback the host did not override runs its default body, which does
    // nothing: the same as not calling it.
    return call(*host);
  });
}

template <class Call>
void InvokeDelegateHelper::forwardVoid(const char* shortName, Call&& call) {
  forward(shortName, true, [&](ZivoraDelegate& host) {
    call(host);
    return true;
  });
}

void InvokeDelegateHelper::videoDidCache(const std::string& placement) {
  forwardVoid("videoDidCache", [&](ZivoraDelegate& host) { host.videoDidCache(placement); });
}

void InvokeDelegateHelper::videoDidFailToLoad(const std::string& placement, std::uint64_t error) {
  forwardVoid("videoDidFailToLoad",
              [&](ZivoraDelegate& host) { host.videoDidFailToLoad(placement, error); });
}

void InvokeDelegateHelper::videoWindowWillDisplay(const std::string& placement) {
  forwardVoid("videoWindowWillDisplay",
              [&](ZivoraDelegate& host) { host.videoWindowWillDisplay(placement); });
}

void InvokeDelegateHelper::videoWindowDidDisplay(const std::string& placement) {
  forwardVoid("videoWindowDidDisplay",
              [&](ZivoraDelegate& host) { host.videoWindowDidDisplay(placement); });
}

void InvokeDelegateHelper::videoDidDismiss(const std::string& placement) {
  forwardVoid("videoDidDismiss", [&](ZivoraDelegate& host) { host.videoDidDismiss(placement); });
}

void InvokeDelegateHelper::videoWindowWillClose(const std::string& placement) {
  forwardVoid("videoWindowWillClose",
              [&](ZivoraDelegate& host) { host.videoWindowWillClose(placement); });
}

void InvokeDelegateHelper::videoWindowDidClose(const std::string& placement) {
  forwardVoid("videoWindowDidClose",
              [&](ZivoraDelegate& host) { host.videoWindowDidClose(placement); });
}

void InvokeDelegateHelper::videoPostViewDidClick(const std::string& placement) {
  forwardVoid("videoPostViewDidClick",
              [&](ZivoraDelegate& host) { host.videoPostViewDidClick(placement); });
}

void InvokeDelegateHelper::videoReceiveReward(const std::string& placement) {
  forwardVoid("videoReceiveReward",
              [&](ZivoraDelegate& host) { host.videoReceiveReward(placement); });
}

void InvokeDelegateHelper::videoReceiveReward(const std::string& placement,
                                              const std::string& rewardId) {
  forwardVoid("videoReceiveReward",
              [&](ZivoraDelegate& host) { host.videoReceiveReward(placement, rewardId); });
}

bool InvokeDelegateHelper::receiveMotivatedRewards(
    const std::vector<ZVMotivatedRewardInfo>& rewards) {
  return forward("receiveMotivatedRewards", false,
                 [&](ZivoraDelegate& host) { return host.receiveMotivatedRewards(rewards); });
}

void InvokeDelegateHelper::failedRequestMotivatedRewards(std::uint64_t error) {
  forwardVoid("failedRequestMotivatedRewards",
              [&](ZivoraDelegate& host) { host.failedRequestMotivatedRewards(error); });
}

}  // namespace zivora
