#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>

#include "resources/ZVDownloadDelegate.h"

namespace zivora::test {

// Lets a test on real threads wait for the end of a download, or for its
// bytes.
class WaitingDownloadDelegate final : public ZVDownloadDelegate {
 public:
  void receiveData(std::int64_t bytes) override {
    {
      std::lock_guard lock(mutex_);
      received_ += bytes;
    }
    changed_.notify_all();
  }
  void finishLoading(const std::string&) override { end(0); }
  void errorLoadingResource(const std::string&, std::int32_t error) override { end(error); }

  // 0 for success, the error code, or nothing on timeout. Re-arms itself,
  // the count of bytes too.
  std::optional<std::int32_t> wait(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, timeout, [&] { return result_.has_value(); })) return std::nullopt;
    received_ = 0;
    return std::exchange(result_, std::nullopt);
  }
  // Whether `bytes` in all were written before the timeout, and before the
  // download ended.
  bool waitForBytes(std::int64_t bytes, std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, timeout, [&] { return received_ >= bytes || result_.has_value(); });
    return received_ >= bytes && !result_.has_value();
  }

 private:
  void end(std::int32_t code) {
    {
      std::lock_guard lock(mutex_);
      result_ = code;
    }
    changed_.notify_all();
  }
  std::mutex mutex_;
  std::condition_variable changed_;
  std::optional<std::int32_t> result_;
  std::int64_t received_ = 0;
};

}  // namespace zivora::test
