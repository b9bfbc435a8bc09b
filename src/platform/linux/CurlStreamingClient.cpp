#include "platform/linux/CurlStreamingClient.h"

#include <curl/curl.h>
#include <fmt/format.h>

#include <atomic>
#include <condition_variable>
#include <optional>
#include <string_view>

#include "platform/dispatch/Runtime.h"
#include "platform/linux/CurlHandlePool.h"
#include "platform/linux/CurlSupport.h"

namespace zivora::platform {
namespace {

constexpr long kMaxRedirects = 5;
// libcurl writes the body in pieces of at most 16 KiB. Handing each to the
// main queue on its own cost a wake-up of that queue, a file write and the
// listeners' bookkeeping per 16 KiB, several hundred times for an ad's
// video, all competing for the cores with the player that prepares it. The
// worker gathers them into pieces of up to this size instead, and hands a
// smaller piece over as soon as libcurl has read what the socket held, so
// no byte waits for more to arrive.
constexpr std::size_t kPieceBytes = 256 * 1024;
// Bytes posted to the main queue and not yet handled before the worker
// waits: with the piece being gathered, a transfer holds at most 768 KiB.
constexpr std::size_t kMaxPendingBytes = 2 * kPieceBytes;

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r' ||
                           text.back() == '\n')) {
    text.remove_suffix(1);
  }
  return text;
}

// "HTTP/1.1 206 Partial Content" → 206; 0 when unreadable.
long statusOf(std::string_view line) {
  auto space = line.find(' ');
  if (space == std::string_view::npos) return 0;
  long status = 0;
  for (char c : line.substr(space + 1, 3)) {
    if (c < '0' || c > '9') return 0;
    status = status * 10 + (c - '0');
  }
  return status;
}

// A redirect that libcurl follows itself: the head is not the final one.
bool isFollowedRedirect(const DownloadResponse& head) {
  return head.status >= 300 && head.status < 400 && head.status != 304 &&
         head.header("Location").has_value();
}

}  // namespace

class CurlStreamingClient::Transfer final : public DownloadTask,
                                            public std::enable_shared_from_this<Transfer> {
 public:
  Transfer(DownloadRequest request, std::shared_ptr<DownloadTaskDelegate> delegate,
           dispatch::Queue& main, const StreamingClientOptions& options,
           std::shared_ptr<CurlHandlePool> pool)
      : request_(std::move(request)),
        delegate_(std::move(delegate)),
        main_(main),
        options_(options),
        pool_(std::move(pool)) {}

  void cancel() override {
    cancelled_ = true;
    changed_.notify_all();
  }

  bool finished() const { return finished_; }

  // The worker's whole life.
  void run() {
    std::optional<std::string> error = perform();
    // Whatever the write callback took is the server's: it goes ahead of
    // the completion, also when the transfer failed after it.
    flush();
    auto self = shared_from_this();
    // Whether the transfer was cancelled is decided on the main queue: a
    // short body may be complete before its head was even refused there.
    main_.async([self, error] {
      auto delegate = std::exchange(self->delegate_, nullptr);
      if (delegate) delegate->didComplete(self->cancelled_ ? "cancelled" : error);
    });
    finished_ = true;
  }

 private:
  std::optional<std::string> perform() {
    if (CURLcode init = curl::globalInitResult(); init != CURLE_OK) {
      return fmt::format("libcurl initialisation failed: {}", curl_easy_strerror(init));
    }
    CurlHandlePool::Lease easy = pool_->acquire();
    if (!easy) return "libcurl could not create a handle";
    curl_slist* list = nullptr;
    for (const auto& [name, value] : request_.headers) {
      list = curl_slist_append(list, (name + ": " + value).c_str());
    }
    // The bytes on disk must be the resource's own bytes, never a coding.
    list = curl_slist_append(list, "Accept-Encoding:");
    std::unique_ptr<curl_slist, void (*)(curl_slist*)> headers(list, curl_slist_free_all);
    char errorBuffer[CURL_ERROR_SIZE] = {};
    watch_.limit = options_.lowSpeedTime;

    CURL* handle = easy.get();
    curl_easy_setopt(handle, CURLOPT_URL, request_.url.c_str());
    curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L);
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, errorBuffer);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle, CURLOPT_MAXREDIRS, kMaxRedirects);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!options_.caFile.empty()) curl_easy_setopt(handle, CURLOPT_CAINFO, options_.caFile.c_str());
    curl::setTimeouts(handle, options_.connectTimeout, options_.lowSpeedTime);
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, &Transfer::onHeader);
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &Transfer::onBody);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, &Transfer::onProgress);
    curl_easy_setopt(handle, CURLOPT_XFERINFODATA, this);

    const CURLcode result = curl_easy_perform(handle);
    if (watch_.idle) return fmt::format("no data moved for {} ms", options_.lowSpeedTime.count());
    if (result != CURLE_OK) {
      return fmt::format("{} ({}): {}", curl_easy_strerror(result), static_cast<int>(result),
                         errorBuffer);
    }
    if (!headPosted_) return "no HTTP response";
    return std::nullopt;
  }

  static size_t onHeader(char* data, size_t size, size_t count, void* user) {
    auto* self = static_cast<Transfer*>(user);
    const std::string_view line(data, size * count);
    if (line.starts_with("HTTP/")) {
      self->head_ = DownloadResponse{.status = statusOf(line), .headers = {}};
    } else if (trimmed(line).empty()) {
      self->endOfHead();
    } else if (auto colon = line.find(':'); colon != std::string_view::npos) {
      self->head_.headers.emplace_back(std::string(trimmed(line.substr(0, colon))),
                                       std::string(trimmed(line.substr(colon + 1))));
    }
    return self->cancelled_ ? 0 : size * count;
  }

  void endOfHead() {
    if (head_.status < 200 || isFollowedRedirect(head_)) return;
    postHead();
  }

  void postHead() {
    if (headPosted_) return;
    headPosted_ = true;
    main_.async([self = shared_from_this(), head = head_] {
      if (self->cancelled_ || !self->delegate_) return;
      self->accepted_ = self->delegate_->didReceiveResponse(head);
      if (!self->accepted_) self->cancel();
    });
  }

  static size_t onBody(char* data, size_t size, size_t count, void* user) {
    auto* self = static_cast<Transfer*>(user);
    return self->gather(std::string_view(data, size * count)) ? size * count : 0;
  }

  // Adds body bytes to the piece being gathered and hands it over once it
  // is full; false once the transfer is cancelled.
  bool gather(std::string_view bytes) {
    if (cancelled_) return false;
    if (piece_.empty()) piece_ = takeSpare();
    piece_.append(bytes);
    return piece_.size() < kPieceBytes || flush();
  }

  // Hands the gathered piece, if any, to the main queue, waiting while too
  // many bytes are in flight; false once the transfer is cancelled.
  bool flush() {
    if (piece_.empty()) return !cancelled_;
    postHead();
    const std::size_t bytes = piece_.size();
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [&] { return cancelled_ || pendingBytes_ < kMaxPendingBytes; });
      if (cancelled_) {
        piece_.clear();
        return false;
      }
      pendingBytes_ += bytes;
    }
    main_.async([self = shared_from_this(), piece = std::exchange(piece_, {}), bytes]() mutable {
      {
        std::lock_guard lock(self->mutex_);
        self->pendingBytes_ -= bytes;
      }
      self->changed_.notify_all();
      if (!self->cancelled_ && self->accepted_ && self->delegate_)
        self->delegate_->didReceiveData(piece);
      self->keepSpare(std::move(piece));
    });
    return true;
  }

  // One piece's buffer goes back and forth between the worker and the main
  // queue, so gathering does not fault in fresh memory for every piece.
  std::string takeSpare() {
    std::lock_guard lock(mutex_);
    std::string buffer = std::exchange(spare_, {});
    buffer.reserve(kPieceBytes);
    return buffer;
  }
  void keepSpare(std::string buffer) {
    buffer.clear();
    std::lock_guard lock(mutex_);
    if (buffer.capacity() > spare_.capacity()) spare_ = std::move(buffer);
  }

  // libcurl calls this after each pass over the socket, and at least once
  // a second while nothing arrives: what the pass read is handed over, so
  // a piece is never held back waiting for bytes that have not come.
  static int onProgress(void* user, curl_off_t, curl_off_t down, curl_off_t, curl_off_t up) {
    auto* self = static_cast<Transfer*>(user);
    if (!self->flush()) return 1;
    return self->cancelled_ || self->watch_.expired(down, up) ? 1 : 0;
  }

  const DownloadRequest request_;
  // Touched on the main queue only (the worker merely hands it there).
  std::shared_ptr<DownloadTaskDelegate> delegate_;
  bool accepted_ = false;
  dispatch::Queue& main_;
  const StreamingClientOptions& options_;
  std::shared_ptr<CurlHandlePool> pool_;

  // The worker's own.
  DownloadResponse head_;
  bool headPosted_ = false;
  curl::IdleWatch watch_;
  // Body bytes not yet handed to the main queue.
  std::string piece_;

  std::atomic<bool> cancelled_{false};
  std::atomic<bool> finished_{false};
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t pendingBytes_ = 0;
  std::string spare_;
};

CurlStreamingClient::CurlStreamingClient(StreamingClientOptions options,
                                         std::shared_ptr<dispatch::Runtime> runtime)
    : options_(std::move(options)), runtime_(std::move(runtime)), pool_(CurlHandlePool::make()) {
  curl::globalInitResult();
}

CurlStreamingClient::~CurlStreamingClient() {
  std::vector<Worker> workers;
  {
    std::lock_guard lock(mutex_);
    workers.swap(workers_);
  }
  for (auto& worker : workers) worker.transfer->cancel();
  for (auto& worker : workers) {
    if (worker.thread.joinable()) worker.thread.join();
  }
}

std::shared_ptr<DownloadTask> CurlStreamingClient::start(
    DownloadRequest request, std::shared_ptr<DownloadTaskDelegate> delegate) {
  reapFinished();
  auto transfer = std::make_shared<Transfer>(std::move(request), std::move(delegate),
                                             runtime_->mainQueue(), options_, pool_);
  std::lock_guard lock(mutex_);
  workers_.push_back({transfer, std::thread([transfer] { transfer->run(); })});
  return transfer;
}

void CurlStreamingClient::reapFinished() {
  std::vector<Worker> done;
  {
    std::lock_guard lock(mutex_);
    for (auto it = workers_.begin(); it != workers_.end();) {
      if (it->transfer->finished()) {
        done.push_back(std::move(*it));
        it = workers_.erase(it);
      } else {
        ++it;
      }
    }
  }
  for (auto& worker : done) worker.thread.join();
}

}  // namespace zivora::platform
