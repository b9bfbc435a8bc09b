#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/FileSystem.h"
#include "platform/StreamingHttpClient.h"
#include "resources/ZVDownloadDelegate.h"
#include "resources/ZVFileStatusEntity.h"

namespace zivora {

// Downloads one cache file at a time over HTTP, resuming a partial file with
// an open-ended byte range, and tells three listeners how it went: its own
// delegate (the resource manager), the record's delegate and the record's
// progressive playback loader. `load` comes from the download queue; every
// transfer event arrives on the main queue.
//
// Every chunk is appended to the end of the file through one descriptor per
// transfer, synced when the file completes, fails or is cancelled (on the
// sync queue, ahead of the file's record); the size on disk is the resume
// point after any interruption.
class ZVResourceLoader : public std::enable_shared_from_this<ZVResourceLoader> {
 public:
  // A server that keeps answering 416 or an unusable 206 makes the loader
  // start over again and again: after this many restarts in a row without a
  // byte of body, the transfer fails.
  static constexpr int kMaxRestartsWithoutBody = 3;
  // How often, in bytes written, free space is measured again during a
  // transfer.
  static constexpr std::int64_t kFreeSpaceCheckInterval = 4 * 1024 * 1024;

  ZVResourceLoader();
  ~ZVResourceLoader();

  void load(const std::shared_ptr<ZVFileStatusEntity>& entity);
  void cancel();
  bool isBusy() const { return busy_; }
  // Deletes the partial file and asks for the whole file.
  void createNewRequest();
  // Asks for the file from its current size on disk.
  void resumeNewRequest();
  bool validateRange(const std::optional<std::string>& contentRange,
                     const std::optional<std::string>& contentLength);
  void removeFile();
  // The first run of digits in a Content-Range value ("bytes 1000-4999/5000"
  // gives 1000), or -1.
  static std::int32_t parseRange(const std::optional<std::string_view>& contentRange);
  // The total after the last "/" (5000 above; "*" gives 0), or -1.
  static std::int32_t parseRangeForSize(const std::optional<std::string_view>& contentRange);
  // A header's integer value: leading blanks, a sign and digits, else 0;
  // saturated instead of overflowing.
  static std::int64_t integerValue(std::string_view text);
  // The full size a partial reply announces: the resume offset plus its
  // Content-Length, saturated to the int32 range whatever the header says.
  static std::int32_t rangeFullSize(std::int32_t offset, std::string_view contentLength);
  void errorDownload(const std::shared_ptr<ZVFileStatusEntity>& entity, std::int32_t error);

  std::shared_ptr<ZVDownloadDelegate> delegate() const { return delegate_.lock(); }
  void setDelegate(const std::shared_ptr<ZVDownloadDelegate>& delegate) { delegate_ = delegate; }

  // Transfer events, for the task listener (main queue).
  bool didReceiveResponse(std::uint64_t task, const platform::DownloadResponse& response);
  void didReceiveData(std::uint64_t task, std::string_view chunk);
  void didCompleteWithError(std::uint64_t task, const std::optional<std::string>& error);

 private:
  class TaskListener;

  std::shared_ptr<ZVFileStatusEntity> currentEntity() const;
  void startTask(bool ranged);
  // Stops listening to the current transfer: its later events are ignored.
  void abandonTask();
  bool isCurrentTask(std::uint64_t task) const { return task == taskNumber_; }
  void openFile(bool truncate);
  void closeFile();
  // Appends the whole chunk; false when the disk took less or the file is
  // no longer in the directory.
  bool writeChunk(std::string_view chunk);
  void failTransfer();
  // A file larger than the whole cache can never be cached: the transfer
  // stops, its partial file is removed and the download fails with 1.
  void failTooLarge(const char* reason);
  void acceptWholeFile(const std::shared_ptr<ZVFileStatusEntity>& entity,
                       const platform::DownloadResponse& response);
  void notifyFinished(const std::shared_ptr<ZVFileStatusEntity>& entity);

  std::atomic<bool> busy_{false};
  std::atomic<bool> createNewRequestAfterError_{false};
  mutable std::mutex mutex_;
  std::shared_ptr<ZVFileStatusEntity> currentEntity_;
  std::shared_ptr<platform::DownloadTask> task_;
  std::atomic<bool> canceled_{false};
  std::weak_ptr<ZVDownloadDelegate> delegate_;

  // Which transfer is current; events of older ones are dropped.
  std::atomic<std::uint64_t> taskNumber_{0};
  std::atomic<int> restartsWithoutBody_{0};
  std::int64_t bytesSinceSpaceCheck_ = 0;
  std::shared_ptr<platform::FileSystem> files_;
  std::mutex fileMutex_;
  int fd_ = -1;
};

}  // namespace zivora
