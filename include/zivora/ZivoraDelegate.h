#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zivora/Export.h"
#include "zivora/ZVMotivatedRewardInfo.h"

namespace zivora {

// Error codes that videoDidFailToLoad() and failedRequestMotivatedRewards()
// report. Any other value is an error number sent by the ad server itself
// (the host sees it as an unsigned 64-bit value, so -1 arrives as 2^64-1).
enum ZivoraError : std::uint64_t {
  // A resource could not be downloaded for want of disk space.
  ZivoraErrorNoSpace = 2,
  // Initialisation with the ad server failed, or an ad failed after its retry.
  ZivoraErrorInitializationFailed = 3,
  // The motivated-rewards reply had the wrong shape.
  ZivoraErrorBadRewardResponse = 4,
  // No ad screen can be shown, so no ad is requested: the display did not
  // open (SDL video did not start: a driver error, a refused display), or
  // the host drives SDL video itself while asking for
  // MainQueueMode::OwnThread. The log says which.
  ZivoraErrorDisplayUnavailable = 5,
};

// What the host hears about its ads. Every callback is optional: override
// the ones you need. A callback you do not override keeps its default body,
// which does nothing (receiveMotivatedRewards() answers false); the SDK
// treats that exactly as a callback the host does not implement.
//
// Threads: videoDidCache, videoDidFailToLoad (ad errors) and the window, dismiss,
// click and reward callbacks come from the SDK's main queue; a
// videoDidFailToLoad with ZivoraErrorInitializationFailed comes from the
// SDK's start-up queue, or from the thread that called showVideo()/
// cacheVideo() while initialisation was failing; the two reward callbacks
// come from the SDK's main queue and its request queue respectively.
// Exceptions thrown by a callback are caught and reported; they never reach
// the SDK's threads.
class ZIVORA_API ZivoraDelegate {
 public:
  virtual ~ZivoraDelegate() = default;

  // The placement's ad is downloaded and ready to show.
  virtual void videoDidCache(const std::string& placement) { (void)placement; }
  // The placement could not be prepared or shown.
  virtual void videoDidFailToLoad(const std::string& placement, std::uint64_t error) {
    (void)placement;
    (void)error;
  }
  // The ad screen is about to appear / has appeared.
  virtual void videoWindowWillDisplay(const std::string& placement) { (void)placement; }
  virtual void videoWindowDidDisplay(const std::string& placement) { (void)placement; }
  // The video was dismissed (played out or skipped); the post-video screen follows.
  virtual void videoDidDismiss(const std::string& placement) { (void)placement; }
  // The ad screen is about to close / has closed.
  virtual void videoWindowWillClose(const std::string& placement) { (void)placement; }
  virtual void videoWindowDidClose(const std::string& placement) { (void)placement; }
  // The user tapped the call to action of the post-video screen.
  virtual void videoPostViewDidClick(const std::string& placement) { (void)placement; }
  // The user watched the video to the end and earned the placement's reward.
  virtual void videoReceiveReward(const std::string& placement) { (void)placement; }
  // Motivated rewards arrived. Answer true to take them: the SDK then asks
  // the server to clear them; false leaves them for the next fetch.
  virtual bool receiveMotivatedRewards(const std::vector<ZVMotivatedRewardInfo>& rewards) {
    (void)rewards;
    return false;
  }
  // Fetching motivated rewards failed with `error`.
  virtual void failedRequestMotivatedRewards(std::uint64_t error) { (void)error; }

  // The reward of videoReceiveReward(placement) with its id: the SDK calls
  // this one, and by default it calls the one without the id. A reward is
  // recorded on disk when it is earned and its record cleared when this
  // callback returns; a crash in between delivers it again at the next
  // start (after the handshake, before any new ad) with the same
  // `rewardId`. Delivery is at least once: a host that must never pay twice
  // keeps the ids it has paid and skips a repeat. Declared last, so the
  // callbacks above keep their places in the table of virtual functions.
  virtual void videoReceiveReward(const std::string& placement, const std::string& rewardId) {
    (void)rewardId;
    videoReceiveReward(placement);
  }
};

}  // namespace zivora
