#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/StreamingHttpClient.h"
#include "platform/dispatch/Runtime.h"

namespace zivora::test {

// Records every transfer and lets the test play the server. Events reach the
// delegate through the main queue, in order, as the real client delivers
// them: a head answered with "cancel" cancels the transfer, and a cancelled
// transfer gets no more chunks and completes with an error.
class FakeStreamingClient final : public platform::StreamingHttpClient {
 public:
  struct Transfer final : platform::DownloadTask {
    platform::DownloadRequest request;
    std::shared_ptr<platform::DownloadTaskDelegate> delegate;
    std::atomic<bool> cancelled{false};
    void cancel() override { cancelled = true; }
    std::optional<std::string> header(std::string_view name) const;
  };

  explicit FakeStreamingClient(dispatch::Runtime& runtime) : runtime_(runtime) {}

  std::shared_ptr<platform::DownloadTask> start(
      platform::DownloadRequest request,
      std::shared_ptr<platform::DownloadTaskDelegate> delegate) override;

  std::vector<std::shared_ptr<Transfer>> transfers() const;
  std::shared_ptr<Transfer> last() const;

  void respond(const std::shared_ptr<Transfer>& transfer, long status,
               std::vector<std::pair<std::string, std::string>> headers);
  void send(const std::shared_ptr<Transfer>& transfer, std::string chunk);
  void complete(const std::shared_ptr<Transfer>& transfer,
                std::optional<std::string> error = std::nullopt);

  // Answers like a file server holding `content`: 200 without a Range,
  // 206 from the asked offset, 416 past the end; the body goes in chunks of
  // `chunk` bytes, and completes unless `stopAfter` bytes were sent.
  void serve(const std::shared_ptr<Transfer>& transfer, const std::string& content,
             std::size_t chunk = 1000, std::optional<std::size_t> stopAfter = std::nullopt);

 private:
  dispatch::Runtime& runtime_;
  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<Transfer>> transfers_;
};

}  // namespace zivora::test
