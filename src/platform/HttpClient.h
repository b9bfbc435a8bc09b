#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zivora::platform {

struct HttpRequest {
  std::string method = "POST";
  std::string url;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
  // Off: a redirect answer is the response (a tracker probe reads its
  // "Location" itself). On: redirects to https addresses are followed.
  bool followRedirects = true;
  // On: a one-off request to a third party, on a connection of its own that
  // is closed afterwards, so that a server's framing mistakes (a body after
  // a 304, say) cannot spill into later requests on a shared connection.
  bool freshConnection = false;

  // A form POST as both servers take it: the body's byte count and the
  // form content type.
  static HttpRequest formPost(std::string url, std::string body) {
    HttpRequest request;
    request.url = std::move(url);
    request.headers = {{"Content-Length", std::to_string(body.size())},
                       {"Content-Type", "application/x-www-form-urlencoded"}};
    request.body = std::move(body);
    return request;
  }
};

struct HttpResponse {
  // The final HTTP status; 0 when no complete response was obtained (no
  // connection, TLS failure, timeout, connection closed mid-body, body over
  // the size cap).
  long status = 0;
  std::string body{};
  // What went wrong when status is 0, for logs.
  std::string error{};
  // The final response's header fields as received (names as sent).
  std::vector<std::pair<std::string, std::string>> headers{};

  // The first field named `name` (compared without regard to case), or
  // nullptr.
  const std::string* header(std::string_view name) const;
};

// Settings of the blocking request client; tests shorten the timeouts.
struct HttpClientOptions {
  // A CA bundle (PEM) to verify servers against instead of the system
  // store, for private servers; empty uses the system store. Verification
  // is never switched off.
  std::string caFile;
  std::chrono::milliseconds connectTimeout{std::chrono::seconds(30)};
  // A transfer slower than 1 byte/s for this long is abandoned.
  std::chrono::milliseconds lowSpeedTime{std::chrono::seconds(60)};
  // Replies larger than this are treated as no response.
  std::size_t maxBodyBytes = 16u * 1024u * 1024u;
};

// One blocking request/response exchange. Implementations are thread-safe:
// several queues may send at once.
class HttpClient {
 public:
  virtual ~HttpClient() = default;
  virtual HttpResponse perform(const HttpRequest& request) = 0;
  // Makes requests under way fail soon and later ones fail at once: the SDK
  // is shutting down and will not wait for a stalled server. Any thread.
  virtual void abortAll() {}
};

}  // namespace zivora::platform
