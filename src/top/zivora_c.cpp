// The C interface: checks its arguments, converts them and calls the C++
// facade. The facade itself never throws; the guards here cover the
// conversions (allocation) so nothing can unwind into C code.
#include "zivora/zivora_c.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "top/CCallbackDelegate.h"
#include "util/Guard.h"
#include "util/ZVLog.h"
#include "zivora/ZVConstants.h"
#include "zivora/Zivora.h"

namespace zivora {
namespace {

constexpr char kClass[] = "ZivoraC";

// A NULL argument where a text is required: logged, and the call does nothing.
bool present(const char* text, const char* function, const char* argument) {
  if (text) return true;
  ZVLog::system(fmt::format("[Zivora][{}] Error: {} is NULL", function, argument));
  return false;
}

std::string textOrEmpty(const char* text) { return text ? std::string(text) : std::string(); }

std::optional<std::string> optionalText(const char* text) {
  return text ? std::optional<std::string>(text) : std::nullopt;
}

// Copies what the caller's struct has; members an older, smaller struct
// lacks stay at their defaults.
template <class Struct>
std::optional<Struct> sized(const Struct* given, const char* function) {
  if (!given) return std::nullopt;
  if (given->struct_size == 0) {
    ZVLog::system(
        fmt::format("[Zivora][{}] Error: struct_size is 0; use the *_init function", function));
    return std::nullopt;
  }
  Struct copy{};
  std::memcpy(&copy, given, std::min(given->struct_size, sizeof(Struct)));
  return copy;
}

HostOptions hostOptions(const zivora_options& c) {
  HostOptions host;
  host.dataRoot = textOrEmpty(c.data_root);
  host.applicationName = textOrEmpty(c.application_name);
  host.applicationVersion = textOrEmpty(c.application_version);
  host.adEndpoint = textOrEmpty(c.ad_endpoint);
  host.analyticsEndpoint = textOrEmpty(c.analytics_endpoint);
  host.caFile = textOrEmpty(c.ca_file);
  host.limitAdTracking = c.limit_ad_tracking != 0;
  host.receiptFile = textOrEmpty(c.receipt_file);
  host.safeArea = {c.safe_area_top, c.safe_area_left, c.safe_area_bottom, c.safe_area_right};
  host.mainQueueMode = c.main_queue_mode == ZIVORA_MAIN_QUEUE_HOST_PUMPED
                           ? MainQueueMode::HostPumped
                           : MainQueueMode::OwnThread;
  host.screenWidth = c.screen_width;
  host.screenHeight = c.screen_height;
  host.hostWindow = c.host_window;
  host.gpuType = textOrEmpty(c.gpu_type);
  // The host's C functions, wrapped; their user data travels with them.
  if (auto log = c.log) {
    host.log = [log, user = c.host_user_data](ZivoraLogLevel level, const std::string& line) {
      log(user, static_cast<zivora_log_level>(level), line.c_str());
    };
  }
  if (auto open = c.open_url) {
    host.openUrl = [open, user = c.host_user_data](const std::string& url) {
      return open(user, url.c_str()) != 0;
    };
  }
  return host;
}

}  // namespace
}  // namespace zivora

using zivora::guarded;

extern "C" {

void zivora_options_init(zivora_options* options) {
  if (!options) return;
  *options = zivora_options{};
  options->struct_size = sizeof(zivora_options);
}

void zivora_callbacks_init(zivora_callbacks* callbacks) {
  if (!callbacks) return;
  *callbacks = zivora_callbacks{};
  callbacks->struct_size = sizeof(zivora_callbacks);
}

void zivora_initialize(const char* app_id, const zivora_options* options) {
  guarded(zivora::kClass, "zivora_initialize", [&] {
    if (!zivora::present(app_id, "zivora_initialize", "app_id")) return;
    auto copy = zivora::sized(options, "zivora_initialize");
    if (options && !copy) return;
    zivora::Zivora::initializeWithAppId(app_id,
                                        copy ? zivora::hostOptions(*copy) : zivora::HostOptions{});
  });
}

void zivora_set_app_user_id(const char* user_id) {
  guarded(zivora::kClass, "zivora_set_app_user_id",
          [&] { zivora::Zivora::setAppUserId(zivora::optionalText(user_id)); });
}

void zivora_set_callbacks(const zivora_callbacks* callbacks) {
  guarded(zivora::kClass, "zivora_set_callbacks", [&] {
    auto copy = zivora::sized(callbacks, "zivora_set_callbacks");
    if (callbacks && !copy) return;
    zivora::Zivora::setDelegate(copy ? std::make_shared<zivora::CCallbackDelegate>(*copy)
                                     : nullptr);
  });
}

void zivora_cache_video(const char* placement) {
  guarded(zivora::kClass, "zivora_cache_video", [&] {
    if (zivora::present(placement, "zivora_cache_video", "placement"))
      zivora::Zivora::cacheVideo(placement);
  });
}

int zivora_is_ready_video(const char* placement) {
  return guarded(zivora::kClass, "zivora_is_ready_video", 0, [&] {
    return zivora::present(placement, "zivora_is_ready_video", "placement") &&
                   zivora::Zivora::isReadyVideo(placement)
               ? 1
               : 0;
  });
}

void zivora_show_video(const char* placement) {
  guarded(zivora::kClass, "zivora_show_video", [&] {
    if (zivora::present(placement, "zivora_show_video", "placement"))
      zivora::Zivora::showVideo(placement);
  });
}

void zivora_purchase_event(double amount, const char* currency, const char* transaction_id) {
  guarded(zivora::kClass, "zivora_purchase_event", [&] {
    zivora::Zivora::purchaseEvent(amount, zivora::optionalText(currency),
                                  zivora::optionalText(transaction_id));
  });
}

void zivora_purchase_event_with_receipt(double amount, const char* currency,
                                        const char* transaction_id, const char* receipt) {
  guarded(zivora::kClass, "zivora_purchase_event_with_receipt", [&] {
    if (!zivora::present(receipt, "zivora_purchase_event_with_receipt", "receipt")) return;
    zivora::Zivora::purchaseEvent(amount, zivora::optionalText(currency),
                                  zivora::optionalText(transaction_id), receipt);
  });
}

void zivora_log_enable(int enable) { zivora::Zivora::logEnable(enable != 0); }

void zivora_request_motivated_rewards(void) { zivora::Zivora::requestMotivatedRewards(); }

void zivora_remove_motivated_rewards(const char* const* reward_ids, size_t count) {
  guarded(zivora::kClass, "zivora_remove_motivated_rewards", [&] {
    if (count > 0 && !reward_ids) {
      zivora::present(nullptr, "zivora_remove_motivated_rewards", "reward_ids");
      return;
    }
    std::vector<std::string> ids;
    for (size_t i = 0; i < count; ++i) {
      if (!zivora::present(reward_ids[i], "zivora_remove_motivated_rewards", "a reward id")) return;
      ids.emplace_back(reward_ids[i]);
    }
    zivora::Zivora::removeMotivatedRewards(ids);
  });
}

size_t zivora_pump(void) { return zivora::Zivora::pump(); }

int zivora_handle_event(const void* sdl_event) {
  return zivora::Zivora::handleEvent(sdl_event) ? 1 : 0;
}

int zivora_is_presenting(void) { return zivora::Zivora::isPresenting() ? 1 : 0; }

int zivora_perform_screen_action(zivora_screen_action action) {
  if (action < ZIVORA_SCREEN_ACTION_SKIP || action > ZIVORA_SCREEN_ACTION_CLOSE) return 0;
  return zivora::Zivora::performScreenAction(static_cast<zivora::ZivoraScreenAction>(action)) ? 1
                                                                                              : 0;
}

int zivora_capture_screen(zivora_screen_image* image) {
  return guarded(zivora::kClass, "zivora_capture_screen", 0, [&] {
    if (!image) {
      zivora::present(nullptr, "zivora_capture_screen", "image");
      return 0;
    }
    *image = zivora_screen_image{};
    auto picture = zivora::Zivora::captureScreen();
    if (!picture || picture->pixels.empty()) return 0;
    auto* pixels = static_cast<unsigned char*>(std::malloc(picture->pixels.size()));
    if (!pixels) return 0;
    std::memcpy(pixels, picture->pixels.data(), picture->pixels.size());
    *image = {picture->width, picture->height, picture->stride, pixels};
    return 1;
  });
}

void zivora_screen_image_free(zivora_screen_image* image) {
  if (!image) return;
  std::free(image->pixels);
  *image = zivora_screen_image{};
}

int zivora_has_queued_events(void) { return zivora::Zivora::hasQueuedEvents() ? 1 : 0; }

void zivora_shutdown(void) { zivora::Zivora::shutdown(); }

const char* zivora_version(void) { return zivora::ZivoraSDKVersionString; }

}  // extern "C"
