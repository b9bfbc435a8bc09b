#pragma once

#include "platform/HttpClient.h"

namespace zivora::platform {

// HttpClient on libcurl. Every call uses its own easy handle, so any number
// of queues may send at once. TLS peer and host verification are always on;
// a caFile replaces the system store (private test servers), it never
// relaxes verification. Only http and https are spoken, and redirects are
// followed to https only.
class CurlHttpClient final : public HttpClient {
 public:
  explicit CurlHttpClient(HttpClientOptions options);

  HttpResponse perform(const HttpRequest& request) override;

 private:
  HttpClientOptions options_;
};

}  // namespace zivora::platform
