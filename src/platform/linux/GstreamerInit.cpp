#include "platform/linux/GstreamerInit.h"

#include <gst/gst.h>

#include <mutex>

#include "util/ZVLog.h"

namespace zivora::platform {

bool ensureGstreamer() noexcept {
  static std::once_flag once;
  static bool ready = false;
  std::call_once(once, [] {
    if (gst_is_initialized()) {
      ready = true;
      return;
    }
    GError* error = nullptr;
    ready = gst_init_check(nullptr, nullptr, &error);
    if (!ready) {
      ZVLog::LogWarning("[GStreamer][init] {}", error ? error->message : "unknown error");
      g_clear_error(&error);
    }
  });
  return ready;
}

}  // namespace zivora::platform
