#include "platform/linux/CurlSupport.h"

#include <algorithm>
#include <mutex>

#include "platform/linux/OpenSslLifetime.h"

namespace zivora::platform::curl {

CURLcode globalInitResult() {
  static std::once_flag once;
  static CURLcode result = CURLE_OK;
  std::call_once(once, [] {
    // libcurl initialises OpenSSL; it must not be the first to.
    OpenSslLifetime::keepUntilProcessEnd();
    result = curl_global_init(CURL_GLOBAL_DEFAULT);
  });
  return result;
}

bool IdleWatch::expired(curl_off_t down, curl_off_t up) {
  const auto now = std::chrono::steady_clock::now();
  if (down != bytesDown || up != bytesUp) {
    bytesDown = down;
    bytesUp = up;
    lastActivity = now;
    return false;
  }
  if (now - lastActivity < limit) return false;
  idle = true;
  return true;
}

void setTimeouts(CURL* easy, std::chrono::milliseconds connectTimeout,
                 std::chrono::milliseconds lowSpeedTime) {
  curl_easy_setopt(
      easy, CURLOPT_CONNECTTIMEOUT_MS,
      static_cast<long>(std::max<std::chrono::milliseconds::rep>(1, connectTimeout.count())));
  // An inactivity limit instead of a total timeout: a slow but moving
  // transfer may take as long as it needs.
  const long seconds = std::max<long>(1, static_cast<long>((lowSpeedTime.count() + 999) / 1000));
  curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, seconds);
}

}  // namespace zivora::platform::curl
