#include "support/FakeStreamingClient.h"

#include <fmt/format.h>

namespace zivora::test {

std::optional<std::string> FakeStreamingClient::Transfer::header(std::string_view name) const {
  for (const auto& [key, value] : request.headers) {
    if (key == name) return value;
  }
  return std::nullopt;
}

std::shared_ptr<platform::DownloadTask> FakeStreamingClient::start(
    platform::DownloadRequest request, std::shared_ptr<platform::DownloadTaskDelegate> delegate) {
  auto transfer = std::make_shared<Transfer>();
  transfer->request = std::move(request);
  transfer->delegate = std::move(delegate);
  std::lock_guard lock(mutex_);
  transfers_.push_back(transfer);
  return transfer;
}

std::vector<std::shared_ptr<FakeStreamingClient::Transfer>> FakeStreamingClient::transfers() const {
  std::lock_guard lock(mutex_);
  return transfers_;
}

std::shared_ptr<FakeStreamingClient::Transfer> FakeStreamingClient::last() const {
  std::lock_guard lock(mutex_);
  return transfers_.empty() ? nullptr : transfers_.back();
}

void FakeStreamingClient::respond(const std::shared_ptr<Transfer>& transfer, long status,
                                  std::vector<std::pair<std::string, std::string>> headers) {
  runtime_.mainQueue().async([transfer, status, headers = std::move(headers)] {
    if (transfer->cancelled) return;
    platform::DownloadResponse head{.status = status, .headers = headers};
    if (!transfer->delegate->didReceiveResponse(head)) transfer->cancel();
  });
}

void FakeStreamingClient::send(const std::shared_ptr<Transfer>& transfer, std::string chunk) {
  runtime_.mainQueue().async([transfer, chunk = std::move(chunk)] {
    if (!transfer->cancelled) transfer->delegate->didReceiveData(chunk);
  });
}

void FakeStreamingClient::complete(const std::shared_ptr<Transfer>& transfer,
                                   std::optional<std::string> error) {
  runtime_.mainQueue().async([transfer, error = std::move(error)] {
    transfer->delegate->didComplete(transfer->cancelled ? std::optional<std::string>("cancelled")
                                                        : error);
  });
}

void FakeStreamingClient::serve(const std::shared_ptr<Transfer>& transfer,
                                const std::string& content, std::size_t chunk,
                                std::optional<std::size_t> stopAfter) {
  const auto range = transfer->header("Range");
  const std::size_t offset = range ? std::stoull(range->substr(6)) : 0;
  if (offset > 0 && offset >= content.size()) {
    respond(transfer, 416, {{"Content-Range", fmt::format("bytes */{}", content.size())}});
    return complete(transfer);
  }
  const std::string length = std::to_string(content.size() - offset);
  if (range) {
    respond(transfer, 206,
            {{"Content-Range",
              fmt::format("bytes {}-{}/{}", offset, content.size() - 1, content.size())},
             {"Content-Length", length}});
  } else {
    respond(transfer, 200, {{"Content-Length", length}});
  }
  for (std::size_t at = offset; at < content.size(); at += chunk) {
    if (stopAfter && at - offset >= *stopAfter) return complete(transfer, "connection reset");
    send(transfer, content.substr(at, chunk));
  }
  complete(transfer);
}

}  // namespace zivora::test
