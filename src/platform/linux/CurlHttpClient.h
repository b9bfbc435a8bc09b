#pragma once

#include <atomic>
#include <memory>

#include "platform/HttpClient.h"

namespace zivora::platform {

class CurlHandlePool;

// HttpClient on libcurl. Every call borrows an easy handle of its own from a
// pool, so any number of queues may send at once, and a later request to the
// same server goes out on the connection an earlier one left open. TLS peer and host verification
// are always on; a caFile replaces the system store (private test servers), it never relaxes
// verification. Only http and https are spoken, and redirects are followed to https only.
class CurlHttpClient final : public HttpClient {
 public:
  explicit CurlHttpClient(HttpClientOptions options);
  ~CurlHttpClient() override;

  HttpResponse perform(const HttpRequest& request) override;
  // A transfer under way notices it at its next progress report (at least
  // once a second, even while no data moves).
  void abortAll() override { aborted_ = true; }

 private:
  HttpClientOptions options_;
  std::shared_ptr<CurlHandlePool> pool_;
  std::atomic<bool> aborted_{false};
};

}  // namespace zivora::platform
