#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zivora/Export.h"
#include "zivora/HostOptions.h"
#include "zivora/ZivoraDelegate.h"

namespace zivora {

// The SDK's whole public surface. Call initializeWithAppId() once, early;
// then set a delegate and cache or show ads per placement. Every operation
// is safe from any thread, never throws, and returns at once: network and
// disk work run on the SDK's own queues.
//
// Until the ad server has answered the start-up handshake, cacheVideo() and
// showVideo() calls are parked and replayed afterwards. If the handshake
// fails twice in a row, parked and new calls fail with
// ZivoraErrorInitializationFailed while the SDK keeps retrying (after 5, 10,
// 15 … seconds, at most 120 s apart). Problems are reported in the log as
// lines starting "[Zivora]" and to the delegate as error codes.
// A picture of the ad screens: `height` rows of `width` pixels, `stride`
// bytes apart. Each pixel is a native-endian 32-bit value 0xAARRGGBB with
// premultiplied alpha (cairo's CAIRO_FORMAT_ARGB32), at the screens' pixel
// size (points times the display's scale).
struct ZivoraScreenImage {
  int width = 0;
  int height = 0;
  int stride = 0;
  std::vector<unsigned char> pixels;
};

// What a host's button can ask of the ad screen shown.
enum class ZivoraScreenAction {
  Skip,          // skip the video, once skipping is allowed
  Sound,         // switch the sound on or off
  CallToAction,  // the post-video screen's call to action
  Close,         // close the post-video screen
};

class ZIVORA_API Zivora {
 public:
  Zivora() = delete;

  // Starts the SDK with the application id the ad server issued. A second
  // call logs a warning and changes nothing.
  static void initializeWithAppId(const std::string& appId) noexcept;
  static void initializeWithAppId(const std::string& appId, const HostOptions& options) noexcept;

  // Your own user id, sent with ad requests (nullopt clears it). Every ad
  // request and event after the call carries it; the SDK stores it for
  // later runs on its own queue, so the call never waits for the disk.
  static void setAppUserId(std::optional<std::string> userId) noexcept;

  // The object that hears about ads. Set it after initializeWithAppId(): a
  // delegate set before is dropped. The SDK keeps it alive until replaced.
  static void setDelegate(std::shared_ptr<ZivoraDelegate> delegate) noexcept;
  // The SDK's dispatcher of delegate callbacks (null before initialisation).
  static std::shared_ptr<ZivoraDelegate> delegate() noexcept;

  // Shows the placement's ad full screen, downloading it first if needed.
  // While another ad shows or waits to show, the call caches instead.
  static void showVideo(const std::string& placement) noexcept;
  // Downloads the placement's ad so that a later showVideo() starts at once;
  // the delegate hears videoDidCache() or videoDidFailToLoad().
  static void cacheVideo(const std::string& placement) noexcept;
  static bool isReadyVideo(const std::string& placement) noexcept;

  // Reports an in-app purchase. `amount` must be a finite non-negative
  // number and both texts non-empty, or the call is refused with a log line.
  static void purchaseEvent(double amount, std::optional<std::string> currency,
                            std::optional<std::string> transactionId) noexcept;
  // The same with the receipt or order token your store handed you; without
  // it, the SDK attaches the receipt file named in HostOptions, if any.
  static void purchaseEvent(double amount, std::optional<std::string> currency,
                            std::optional<std::string> transactionId, std::string receipt) noexcept;

  // Switches the SDK's debug log lines on or off (warnings always show).
  static void logEnable(bool enable) noexcept;

  // Fetches the rewards the server granted this user; the delegate hears
  // receiveMotivatedRewards() or failedRequestMotivatedRewards(). Before the
  // handshake has finished, the request waits for it.
  static void requestMotivatedRewards() noexcept;
  // Tells the server these rewards were paid out.
  static void removeMotivatedRewards(const std::vector<std::string>& rewardIds) noexcept;

  // With MainQueueMode::HostPumped: runs the SDK's due main-queue work on
  // the calling thread. Call it once a frame, also while no ad shows.
  // Returns the number of tasks run.
  static std::size_t pump() noexcept;
  // With a host window: offers one of the host's SDL events (an SDL_Event*)
  // to the ad screens, from the thread that pumps. True when an ad screen
  // took it; the host should then not act on it. Always false while no ad
  // shows.
  static bool handleEvent(const void* sdlEvent) noexcept;
  // An ad screen is on the display.
  static bool isPresenting() noexcept;
  // Acts on the ad screen shown as the matching key or controller button
  // would (see the README's bindings), for hosts whose input does not reach
  // the SDK through SDL: a game engine's own input system, a remote, a
  // test script. It runs on the SDK's main queue; a control that is not
  // ready (a skip control before skipping is allowed) ignores it. False
  // when no ad screen is shown.
  static bool performScreenAction(ZivoraScreenAction action) noexcept;
  // Draws the ad screens as they are now and returns the picture, for the
  // host's own recordings, trailers or bug reports. Empty while no ad
  // screen is shown. With MainQueueMode::HostPumped, call it from the
  // thread that pumps (as handleEvent()); otherwise it waits for the SDK's
  // main queue, and is empty when that did not get to it within five
  // seconds. From a delegate callback it draws at once.
  static std::optional<ZivoraScreenImage> captureScreen() noexcept;

  // Ad events (views, clicks, rewards) not yet delivered to the server.
  // They are kept on disk and sent at the next start if the host exits
  // first; a host about to quit may wait a moment for this to turn false.
  static bool hasQueuedEvents() noexcept;
  // Ends the SDK's work for an orderly exit: queued and delayed tasks are
  // dropped, requests under way are aborted, and tasks running on other
  // threads are waited for, so nothing of the SDK runs once it returns (a
  // delegate callback that calls it is the one task not waited for). Events
  // and rewards not yet delivered stay on disk for the next start, and the
  // SDK may be initialised again afterwards. Any thread may call it.
  static void shutdown() noexcept;
};

}  // namespace zivora
