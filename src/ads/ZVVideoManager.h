#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "ads/ZVVideoControllerDelegate.h"

namespace zivora {

class ZivoraDelegate;

// The placement registry: one controller per placement name, made on first
// use and dropped once it has shown its ad or failed, so that the next call
// for the placement starts afresh. Called from the host's thread and the
// facade's queue; controllers report back from theirs.
class ZVVideoManager : public ZVVideoControllerDelegate,
                       public std::enable_shared_from_this<ZVVideoManager> {
 public:
  // `delegate` hears the failures (on the main queue).
  explicit ZVVideoManager(std::shared_ptr<ZivoraDelegate> delegate);
  ~ZVVideoManager() override;

  void showVideo(const std::string& placementName);
  void cacheVideo(const std::string& placementName);
  bool isReadyVideo(const std::string& placementName);
  // Some placement was asked to show and its ad has not gone yet.
  bool isRequestShow();

  void hide(const std::shared_ptr<ZVVideoViewController>& controller) override;
  void didError(std::uint64_t error,
                const std::shared_ptr<ZVVideoViewController>& controller) override;

 private:
  std::shared_ptr<ZVVideoViewController> controllerFor(const std::string& placementName);
  // An ad that could never be shown is not requested: without a display the
  // host hears ZivoraErrorDisplayUnavailable at once (true then).
  bool refusedForDisplay(const std::string& placementName);
  // Drops `controller`'s entry if it is still the placement's; false when
  // the controller has no placement name.
  bool remove(const std::shared_ptr<ZVVideoViewController>& controller);

  std::shared_ptr<ZivoraDelegate> delegate_;
  std::mutex mutex_;
  std::map<std::string, std::shared_ptr<ZVVideoViewController>> controllers_;
};

}  // namespace zivora
