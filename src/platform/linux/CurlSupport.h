#pragma once

#include <curl/curl.h>

#include <chrono>

// What the request client and the streaming client share on libcurl.
namespace zivora::platform::curl {

// curl_global_init, once per process; its result on every call.
CURLcode globalInitResult();

// libcurl's own low-speed check averages over a window of about five
// seconds that still holds earlier bytes, so a server that goes silent is
// noticed only some seconds after the limit. This one counts from the last
// byte that moved either way; libcurl calls it at least once a second while
// a transfer waits.
struct IdleWatch {
  std::chrono::steady_clock::duration limit{};
  std::chrono::steady_clock::time_point lastActivity = std::chrono::steady_clock::now();
  curl_off_t bytesDown = 0;
  curl_off_t bytesUp = 0;
  bool idle = false;

  // True when the transfer has been idle for the limit (it is then aborted).
  bool expired(curl_off_t down, curl_off_t up);
};

// Connect timeout and the idle limit (CURLOPT_XFERINFOFUNCTION must call
// watch->expired), with libcurl's own low-speed check as a backstop.
void setTimeouts(CURL* easy, std::chrono::milliseconds connectTimeout,
                 std::chrono::milliseconds lowSpeedTime);

}  // namespace zivora::platform::curl
