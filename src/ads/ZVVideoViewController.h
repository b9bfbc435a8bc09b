#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "ads/RewardLedger.h"
#include "ads/ZVVideoControllerDelegate.h"
#include "platform/dispatch/Queue.h"
#include "resources/ZVArrayLoaderHelperDelegate.h"
#include "ui/ZVPlayerControllerDelegate.h"
#include "ui/ZVPostVideoControllerDelegate.h"

namespace zivora {

class ZVArrayLoaderHelper;
class ZivoraDelegate;
namespace ui {
class Window;
class ZVPlayerController;
class ZVPostVideoController;
}  // namespace ui

// One placement's ad, from the request to the closed screen. It asks the ad
// server for an ad, reserves and downloads its images, prepares the video
// (which may still be downloading), tells the host when the placement is
// cached, and retries once, 5 s after a first failure, before giving up
// with error 3. Anything that goes wrong on the way to the cached ad (an
// exception, a reply it cannot read) takes that retry path, and a request
// still unanswered when its time budget runs out ends with error 3: every
// cache and show request hears exactly one answer. Shown, it opens the
// full-screen video, reports the start-watching and watched events, moves on
// to the post-video screen and handles the call to action: a "clickAd"
// request, then the target opened (a tracker's redirect resolved by hand
// first). A video played to its end earns a reward, which goes through the
// reward ledger: recorded before the watched event, delivered after the
// screen has closed.
//
// Requests, retries and their completions run on "com.zivora.videoad";
// screens, host callbacks and the click's opening on the main queue. The
// flags are read and written from both, hence atomic; the order of the
// steps is what keeps a double tap from opening two pages.
class ZVVideoViewController : public ZVArrayLoaderHelperDelegate,
                              public ui::ZVPlayerControllerDelegate,
                              public ui::ZVPostVideoControllerDelegate,
                              public std::enable_shared_from_this<ZVVideoViewController> {
 public:
  // `delegate` is the host's (through the SDK's dispatch helper).
  static std::shared_ptr<ZVVideoViewController> create(std::shared_ptr<ZivoraDelegate> delegate);
  ~ZVVideoViewController() override;

  const std::string& placementName() const { return placementName_; }
  void setPlacementName(std::string placementName) { placementName_ = std::move(placementName); }
  void setDelegate(std::weak_ptr<ZVVideoControllerDelegate> delegate);
  // The host asked to show and the ad has not gone yet.
  bool invokedShow() const { return invokedShow_; }

  void cache();
  void show();
  bool isReady() const { return ready_; }

  // Loading.
  void requestAd();
  // `kind`: 0 the server failed, 1 a resource or the player did.
  void repeateRequestAfterError(int kind);
  void loadAdResource(const nlohmann::json* ad);
  void loadVideoFile(const nlohmann::json& ad);
  void reserveAllResources(const nlohmann::json& ad);
  void unreserveAllResources();
  bool isReadyAllResources();
  bool isDownloadedVideo();
  bool isMobileNetwork();
  std::int32_t deviceOrientation();
  // For a transport that hands over raw bytes.
  void parseResponse(const std::optional<std::string>& data);
  bool isValid(const nlohmann::json& ad) const;

  // ZVArrayLoaderHelperDelegate
  void finishLoadingResources(const std::vector<ZVDownloadFileInfo>& files) override;
  void errorLoadingResourcesByHelper(std::int32_t error) override;

  // ui::ZVPlayerControllerDelegate
  void videoWindowWillDisplay() override;
  void playerControllerPrepared() override;
  void finishLoadingFile() override;
  void errorPlayingVideo(std::int32_t error) override;
  void tapCloseView() override;
  void didShowView() override;
  void didHideView() override;
  void finishedPlaying() override;

  // ui::ZVPostVideoControllerDelegate
  void tapClosePostVideo() override;
  void tapTarget() override;
  void videoWindowWillClose() override;
  void didHidePostVideo() override;

  // Showing.
  void showReadyVideo();
  void showWindow();
  void hideWindow();
  void showPostVideoView();
  void click();
  void openURL(const std::string& url);
  bool prefersStatusBarHidden() const { return true; }

  const std::shared_ptr<ui::ZVPlayerController>& playerController() const {
    return playerController_;
  }

 private:
  explicit ZVVideoViewController(std::shared_ptr<ZivoraDelegate> delegate);

  std::optional<nlohmann::json> jsonAd() const;
  // The ad's "adId" as text, "" without one.
  std::string adId() const;
  void receiveAdResponse(const nlohmann::json* reply, int code);
  void sendClick();
  void receiveClickResponse(int code);
  void openTarget(const std::string& target);
  void openResolved(const std::string& target, const std::string& location);
  void clickHandedOver();
  void notifyCached();
  void presentWindow(bool& presented);
  // The window could not be shown: the show request fails with error 3.
  void failShow();
  // Records the reward the moment it is earned; the watched event follows
  // its commit.
  void earnReward();
  // Hands the earned reward to the host, after the window's close.
  void deliverReward();
  // The one failure answer: tells the registry (which tells the host) once,
  // and retires the controller so that nothing it still has under way
  // reaches the host afterwards.
  void fail(std::uint64_t error);
  // Starts the request's time budget unless one runs already.
  void startTimeBudget();
  void stopTimeBudget();
  void timeBudgetSpent();
  // Runs a step of the load; if it throws, the load takes the retry path.
  template <class Body>
  void loadStep(const char* method, int kind, Body body);
  // Runs `body` on the serial queue, inside the guard named `method`.
  template <class Body>
  void onSerial(const char* method, Body body);
  // Runs `body` on the main queue, inside the guard named `method`.
  template <class Body>
  void onMain(const char* method, Body body);
  // Queues the host callback `call` on the main queue.
  template <class Call>
  void tellHost(Call call);

  std::atomic<bool> ready_{false};
  std::atomic<bool> showing_{false};
  std::atomic<bool> loading_{false};
  std::atomic<bool> showAfterCached_{false};
  std::atomic<bool> alreadySendTap_{false};
  bool wasIdleTimerDisabled_ = false;  // main queue
  std::atomic<bool> isSuccessfulPlayed_{false};
  std::atomic<bool> sentWatchedAd_{false};
  std::atomic<bool> sentStartWatchingAd_{false};
  std::atomic<bool> clicking_{false};
  std::shared_ptr<dispatch::Queue> serialQueue_;
  std::shared_ptr<ui::Window> window_;      // main queue
  dispatch::TaskHandle delayRequestBlock_;  // serial queue
  dispatch::TaskHandle timeBudget_;         // under mutex_
  // Answered with a failure and dropped by the registry.
  std::atomic<bool> retired_{false};
  std::shared_ptr<ui::ZVPlayerController> playerController_;
  std::shared_ptr<ui::ZVPostVideoController> postVideoController_;  // main queue
  std::atomic<bool> invokedCache_{false};
  std::atomic<bool> tapAd_{false};
  std::atomic<bool> tapClose_{false};
  std::atomic<std::int32_t> countRequestToServer_{0};
  std::atomic<std::int32_t> countRequestToCDN_{0};
  std::atomic<bool> invokedShow_{false};
  std::string placementName_;
  std::shared_ptr<ZivoraDelegate> host_;

  // The ad, its reservations and its image batch, shared by both queues.
  mutable std::mutex mutex_;
  std::shared_ptr<ZVArrayLoaderHelper> loaderHelper_;
  std::optional<nlohmann::json> jsonAd_;
  std::optional<std::vector<std::string>> reservedNames_;
  std::weak_ptr<ZVVideoControllerDelegate> delegate_;
  std::optional<RewardRecord> reward_;
};

}  // namespace zivora
