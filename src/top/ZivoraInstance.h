#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "ads/ZVWaitInfo.h"
#include "platform/dispatch/Queue.h"
#include "sdk/Context.h"
#include "zivora/Zivora.h"

namespace zivora {

class AdSide;
class InvokeDelegateHelper;
class ZivoraDelegate;

// The hidden instance behind the Zivora facade: it owns the start-up queue
// "com.zivora.main", runs the initialisation handshake with its retries,
// parks show and cache calls until the handshake succeeds and replays them
// afterwards. One exists per process once the host has initialised.
//
// The host's thread and the start-up queue share the flags and the parked
// list; one mutex guards them, and it is never held while host code or a
// collaborator runs.
class ZivoraInstance : public std::enable_shared_from_this<ZivoraInstance> {
 public:
  // Makes the process's instance with its context and starts the handshake.
  // Collaborators missing from `runtime` get the real Linux components.
  static std::shared_ptr<ZivoraInstance> start(const std::string& appId, HostOptions host,
                                               RuntimeOptions runtime);
  // The process's instance, or null before initialisation.
  static std::shared_ptr<ZivoraInstance> current();
  // Drops the instance and its context after ending their work: queued and
  // delayed tasks are dropped, requests under way are aborted, and tasks
  // running on other threads are waited for, so nothing of the SDK runs
  // once it returns (tests, and a host that wants an orderly end before
  // exit). Any thread may call it, a delegate callback too; that callback's
  // own task is the one thing not waited for. It must not be called while
  // holding a lock that SDK work may wait for.
  static void reset();

  ~ZivoraInstance();

  // The public operations, after the facade's "not initialised" check.
  void setAppUserId(std::optional<std::string> userId);
  void setDelegate(std::shared_ptr<ZivoraDelegate> delegate);
  std::shared_ptr<ZivoraDelegate> delegate() const;
  void showVideo(const std::string& placement);
  void cacheVideo(const std::string& placement);
  bool isReadyVideo(const std::string& placement);
  void purchaseEvent(double amount, const std::string& currency, const std::string& transactionId,
                     std::optional<std::string> receipt);
  void requestMotivatedRewards();
  void removeMotivatedRewards(const std::vector<std::string>& rewardIds);
  std::size_t pump();
  // The host's SDL event, offered to the ad screens.
  bool handleEvent(const void* sdlEvent);
  bool isPresenting();
  bool performScreenAction(ZivoraScreenAction action);
  // Draws the screens and copies their pixels, on the main queue.
  std::optional<ZivoraScreenImage> captureScreen();
  bool hasQueuedEvents();

 private:
  ZivoraInstance(std::shared_ptr<Context> context, std::shared_ptr<AdSide> adSide);

  void initOnceWithAppId(const std::string& appId);
  void sendInitializeRequest();
  void receiveInitializeReply(std::optional<nlohmann::json> reply, int code);
  void parseInitialization(const nlohmann::json& reply);
  void initializeAds();
  void storeButtonImages(const nlohmann::json& reply);
  void storeServerURL(const nlohmann::json& reply);
  void removeFiles(const nlohmann::json& reply);
  void replayRequestedAds();
  void notifyAboutError();
  void repeateRequestAfterError();
  std::optional<std::string> getDataForInitialization();
  nlohmann::json deviceInfo();
  // The machine's user-visible name, "deviceUserName".
  std::optional<std::string> deviceUserName();
  std::optional<std::string> encode(std::optional<std::string_view> text);

  // Answers the parked-call rules of showVideo and cacheVideo.
  void requestVideo(const std::string& placement, bool show);
  // The server's refusal text, printed before refusing a call.
  bool refused();

  std::shared_ptr<Context> context_;
  std::shared_ptr<AdSide> adSide_;
  std::shared_ptr<InvokeDelegateHelper> invokeDelegate_;

  // Fields of the handshake; those below the mutex are shared with the host.
  std::shared_ptr<dispatch::Queue> serial_;
  dispatch::TaskHandle delayRequestBlock_;
  std::string appId_;
  bool waitInitializeResponse_ = false;
  std::unique_ptr<nlohmann::json> initializationJson_;
  std::int32_t failRequest_ = 0;

  mutable std::mutex mutex_;
  bool initialized_ = false;
  bool isRequestedMotivatedRewards_ = false;
  std::optional<std::string> error_;
  bool failInitialize_ = false;
  std::vector<ZVWaitInfo> requestedAdList_;
};

}  // namespace zivora
