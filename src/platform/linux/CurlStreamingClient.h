#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/StreamingHttpClient.h"

namespace zivora::dispatch {
class Runtime;
}

namespace zivora::platform {

class CurlHandlePool;

struct StreamingClientOptions {
  // A CA bundle (PEM) that replaces the system store; verification stays on.
  std::string caFile;
  std::chrono::milliseconds connectTimeout{std::chrono::seconds(30)};
  // A transfer that moves no byte for this long fails.
  std::chrono::milliseconds lowSpeedTime{std::chrono::seconds(60)};
};

// StreamingHttpClient on libcurl: each transfer runs on a worker thread of
// its own, on an easy handle borrowed from a pool (so consecutive downloads
// from one server share its open connection), and posts its head, chunks and completion to the main
// queue in order. A chunk is what libcurl read in one pass over the socket, gathered up to 256 KiB,
// never held back for bytes still to come. While 512 KiB wait there, the worker holds the transfer
// back, so a slow or host-pumped main queue bounds the memory a download takes. Only http and https
// are spoken, also for redirects (at most 5).
class CurlStreamingClient final : public StreamingHttpClient {
 public:
  CurlStreamingClient(StreamingClientOptions options, std::shared_ptr<dispatch::Runtime> runtime);
  // Cancels every transfer and waits for its worker.
  ~CurlStreamingClient() override;

  std::shared_ptr<DownloadTask> start(DownloadRequest request,
                                      std::shared_ptr<DownloadTaskDelegate> delegate) override;

  class Transfer;

 private:
  struct Worker {
    std::shared_ptr<Transfer> transfer;
    std::thread thread;
  };
  void reapFinished();

  StreamingClientOptions options_;
  std::shared_ptr<dispatch::Runtime> runtime_;
  std::shared_ptr<CurlHandlePool> pool_;
  std::mutex mutex_;
  std::vector<Worker> workers_;
};

}  // namespace zivora::platform
