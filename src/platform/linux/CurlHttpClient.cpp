#include "platform/linux/CurlHttpClient.h"

#include <curl/curl.h>
#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/linux/CurlHandlePool.h"
#include "platform/linux/CurlSupport.h"

namespace zivora::platform {
namespace {

constexpr long kMaxRedirects = 5;

using curl::globalInitResult;

// What one exchange collects while libcurl runs it.
struct Transfer {
  std::size_t maxBodyBytes = 0;
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;
  bool overCap = false;
  curl::IdleWatch watch;
  const std::atomic<bool>* aborted = nullptr;
};

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(" \t\r\n");
  return text.substr(first, last - first + 1);
}

// Called for every header line of every response in the exchange (1xx,
// followed redirects, the final one). A status line starts a new response,
// so only the final response's body and header fields are kept.
size_t onHeader(char* data, size_t size, size_t count, void* user) {
  auto* transfer = static_cast<Transfer*>(user);
  std::string_view line(data, size * count);
  if (line.starts_with("HTTP/")) {
    transfer->body.clear();
    transfer->headers.clear();
    return size * count;
  }
  const auto colon = line.find(':');
  if (colon != std::string_view::npos && colon > 0) {
    transfer->headers.emplace_back(std::string(trimmed(line.substr(0, colon))),
                                   std::string(trimmed(line.substr(colon + 1))));
  }
  return size * count;
}

size_t onBody(char* data, size_t size, size_t count, void* user) {
  auto* transfer = static_cast<Transfer*>(user);
  const size_t bytes = size * count;
  if (transfer->body.size() + bytes > transfer->maxBodyBytes) {
    transfer->overCap = true;
    return 0;  // makes libcurl abort the transfer with a write error
  }
  transfer->body.append(data, bytes);
  return bytes;
}

int onProgress(void* user, curl_off_t, curl_off_t down, curl_off_t, curl_off_t up) {
  auto* transfer = static_cast<Transfer*>(user);
  return *transfer->aborted || transfer->watch.expired(down, up) ? 1 : 0;
}

bool isContentLength(std::string_view name) {
  return name.size() == 14 && strncasecmp(name.data(), "Content-Length", 14) == 0;
}

struct ListDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, ListDeleter>;

// libcurl sets Content-Length from the body itself; a second copy from the
// caller could only disagree with it.
HeaderList makeHeaderList(const HttpRequest& request) {
  curl_slist* list = nullptr;
  auto append = [&list](const std::string& line) {
    curl_slist* grown = curl_slist_append(list, line.c_str());
    if (!grown) throw std::bad_alloc();
    list = grown;
  };
  try {
    for (const auto& [name, value] : request.headers) {
      if (!isContentLength(name)) append(name + ": " + value);
    }
    append("Expect:");  // no 100-continue round trip before the body
  } catch (...) {
    curl_slist_free_all(list);
    throw;
  }
  return HeaderList(list);
}

void setMethodAndBody(CURL* easy, const HttpRequest& request) {
  if (request.method == "GET") {
    curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
    return;
  }
  if (request.method == "POST") {
    curl_easy_setopt(easy, CURLOPT_POST, 1L);
  } else {
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, request.method.c_str());
  }
  if (request.method == "POST" || !request.body.empty()) {
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body.data());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE,
                     static_cast<curl_off_t>(request.body.size()));
  }
}

void setTransportOptions(CURL* easy, const HttpClientOptions& options, bool followRedirects) {
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, followRedirects ? 1L : 0L);
  curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "https");
  curl_easy_setopt(easy, CURLOPT_MAXREDIRS, kMaxRedirects);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
  if (!options.caFile.empty()) curl_easy_setopt(easy, CURLOPT_CAINFO, options.caFile.c_str());
  curl::setTimeouts(easy, options.connectTimeout, options.lowSpeedTime);
}

HttpResponse failure(std::string error) {
  HttpResponse response;
  response.error = std::move(error);
  return response;
}

}  // namespace

CurlHttpClient::CurlHttpClient(HttpClientOptions options) : options_(std::move(options)) {
  globalInitResult();
  pool_ = CurlHandlePool::make();
}

CurlHttpClient::~CurlHttpClient() = default;

HttpResponse CurlHttpClient::perform(const HttpRequest& request) {
  try {
    if (CURLcode init = globalInitResult(); init != CURLE_OK) {
      return failure(fmt::format("libcurl initialisation failed: {}", curl_easy_strerror(init)));
    }
    if (aborted_) return failure("aborted: the client is shutting down");
    CurlHandlePool::Lease easy = pool_->acquire();
    if (!easy) return failure("libcurl could not create a handle");
    HeaderList headers = makeHeaderList(request);
    Transfer transfer;
    transfer.maxBodyBytes = options_.maxBodyBytes;
    transfer.watch.limit = options_.lowSpeedTime;
    transfer.aborted = &aborted_;
    char errorBuffer[CURL_ERROR_SIZE] = {};

    CURL* handle = easy.get();
    curl_easy_setopt(handle, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, errorBuffer);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, onHeader);
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, &transfer);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, onBody);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, onProgress);
    curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &transfer);
    setTransportOptions(handle, options_, request.followRedirects);
    if (request.freshConnection) {
      curl_easy_setopt(handle, CURLOPT_FRESH_CONNECT, 1L);
      curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, 1L);
    }
    setMethodAndBody(handle, request);

    const CURLcode result = curl_easy_perform(handle);
    if (transfer.overCap) {
      return failure(
          fmt::format("reply body exceeds the limit of {} bytes", options_.maxBodyBytes));
    }
    if (aborted_) return failure("aborted: the client is shutting down");
    if (transfer.watch.idle) {
      return failure(fmt::format("no data moved for {} ms", options_.lowSpeedTime.count()));
    }
    if (result != CURLE_OK) {
      return failure(fmt::format("{} ({}): {}", curl_easy_strerror(result),
                                 static_cast<int>(result), errorBuffer));
    }
    HttpResponse response;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &response.status);
    if (response.status == 0) return failure("no HTTP response");
    response.body = std::move(transfer.body);
    response.headers = std::move(transfer.headers);
    return response;
  } catch (const std::exception& e) {
    return failure(fmt::format("request not sent: {}", e.what()));
  }
}

}  // namespace zivora::platform
