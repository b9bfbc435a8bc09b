#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zivora::platform {

struct DownloadRequest {
  std::string url;
  std::vector<std::pair<std::string, std::string>> headers;
};

// The head of the final response: not a 1xx, not a redirect that was followed.
struct DownloadResponse {
  long status = 0;
  std::vector<std::pair<std::string, std::string>> headers;

  // The first header of that name, compared without regard to case.
  std::optional<std::string> header(std::string_view name) const;
};

// Hears one transfer, always on the main queue and in this order: the
// response head (at most once), body chunks, then exactly one completion.
class DownloadTaskDelegate {
 public:
  virtual ~DownloadTaskDelegate() = default;
  // Answers whether the body may come; false cancels the transfer, which
  // then completes with an error.
  virtual bool didReceiveResponse(const DownloadResponse& response) = 0;
  virtual void didReceiveData(std::string_view chunk) = 0;
  // `error` is empty on success.
  virtual void didComplete(const std::optional<std::string>& error) = 0;
};

class DownloadTask {
 public:
  virtual ~DownloadTask() = default;
  // Stops the transfer; no more chunks are delivered and the completion
  // reports an error. Safe from any thread, idempotent.
  virtual void cancel() = 0;
};

// Streaming GET transfers whose events are delivered on the main queue.
class StreamingHttpClient {
 public:
  virtual ~StreamingHttpClient() = default;
  virtual std::shared_ptr<DownloadTask> start(DownloadRequest request,
                                              std::shared_ptr<DownloadTaskDelegate> delegate) = 0;
};

}  // namespace zivora::platform
