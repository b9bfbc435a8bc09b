#pragma once

#include <memory>

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
  ~CurlHttpClient() override;

  HttpResponse perform(const HttpRequest& request) override;

 private:
  // TLS sessions and name lookups kept between requests, so that the next
  // request to a server resumes its TLS session instead of a full
  // handshake. Connections themselves are not shared: libcurl does not
  // support sharing them between threads that send at once.
  class ConnectionShare;

  HttpClientOptions options_;
  std::unique_ptr<ConnectionShare> share_;
};

}  // namespace zivora::platform
