#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace zivora {

namespace dispatch {
class Queue;
}
namespace platform {
class FileSystem;
class UserDefaults;
}  // namespace platform

// Makes finished cache files durable off the main queue, on the serial
// queue "com.zivora.resources.sync": a file's data is synced and its
// descriptor closed, then, for a completed file, its record is committed.
// Both kinds of work run in the order they were handed over, and a
// download hands over its sync before its record, so a record never
// names a file whose bytes could still be lost: a crash in between leaves
// no record, and the next launch downloads the file again.
//
// Until its record is committed a completed file is known complete from
// memory only (`pendingSize`), which is what lets the download callbacks
// go on without waiting for the disk.
class ZVFileSyncQueue : public std::enable_shared_from_this<ZVFileSyncQueue> {
 public:
  // The context's instance; null without a context or a runtime.
  static std::shared_ptr<ZVFileSyncQueue> defaultQueue();

  ZVFileSyncQueue(std::shared_ptr<dispatch::Queue> queue,
                  std::shared_ptr<platform::FileSystem> files);
  // Finishes the work still queued on the calling thread, so that a clean
  // shutdown neither leaks a descriptor nor loses a record.
  ~ZVFileSyncQueue();

  // Takes `fd` over: syncs and closes it in the background.
  void syncAndClose(int fd, const std::string& fileName);
  // Counts `fileName` complete with `size` at once, and commits the record
  // to `settings` after every sync handed over before. A file whose last
  // sync failed gets no record.
  void recordComplete(const std::string& fileName, std::int64_t size,
                      std::shared_ptr<platform::UserDefaults> settings);
  // The size of a completed file whose record is not committed yet.
  std::optional<std::int64_t> pendingSize(const std::string& fileName) const;
  // Drops a pending completion and runs `removeRecord` where no commit can
  // slip in between, so a record removed here never comes back.
  void forget(const std::string& fileName, const std::function<void()>& removeRecord);

 private:
  struct Job {
    int fd = -1;  // a sync when set, else a record
    std::string fileName;
    std::int64_t size = 0;
    std::uint64_t generation = 0;
    std::shared_ptr<platform::UserDefaults> settings;
  };
  struct Pending {
    std::int64_t size = 0;
    std::uint64_t generation = 0;
  };

  void post(Job job);
  // Runs the oldest job; false when there was none.
  bool runNext();
  void sync(const Job& job);
  void commit(const Job& job);

  std::shared_ptr<dispatch::Queue> queue_;
  std::shared_ptr<platform::FileSystem> files_;

  mutable std::mutex mutex_;
  std::deque<Job> jobs_;
  std::map<std::string, Pending> pending_;
  // Files whose latest sync failed: their bytes may not be on disk.
  std::set<std::string> unsynced_;
  std::uint64_t nextGeneration_ = 0;
  // Held across a record's check and write, and across a removal.
  std::mutex commitMutex_;
};

}  // namespace zivora
