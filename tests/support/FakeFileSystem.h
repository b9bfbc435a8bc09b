#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>

#include "platform/FileSystem.h"

namespace zivora::test {

// The real system calls with faults on demand:
//   spaceMode/freeBytes  the free-space figure, an unreadable file system
//                        or a throw
//   diskFullAfter        writes beyond this many bytes in total are cut
//                        short, then fail with ENOSPC (a disk that fills)
//   shortWrites(n)       no single write puts more than n bytes
//   failWrites(e)        every write fails with errno e
//   crashAfter(n)        the next n bytes are written, then the "process
//                        dies": that write fails and so does every later
//                        call but close
//   beforeWrite          runs ahead of every write (to unlink the file
//                        under the writer, say)
// Both write(2) and pwrite(2) see the same faults.
class FakeFileSystem final : public platform::FileSystem {
 public:
  enum class Space { Value, Unreadable, Throws };

  void shortWrites(std::size_t bytes) { maxWrite_ = bytes; }
  void failWrites(int error) { writeError_ = error; }
  void crashAfter(std::size_t bytes) { crashBudget_ = bytes; }

  platform::FreeSpace freeSpace(const std::filesystem::path& path) override;
  ssize_t write(int fd, const void* data, std::size_t size) override;
  ssize_t pwrite(int fd, const void* buffer, std::size_t size, off_t offset) override;
  // Calls `onSync` (when set) and counts; the data is not flushed, since
  // nothing here survives a real crash anyway. A throwing `onSync` stands
  // for a process that dies inside the sync.
  int fdatasync(int fd) override;

  int open(const char* path, int flags, mode_t mode) override;
  // Counts.
  ssize_t pread(int fd, void* buffer, std::size_t size, off_t offset) override;
  off_t size(int fd) override;
  int ftruncate(int fd, off_t size) override;
  int unlink(const char* path) override;
  int syncDirectory(const char* path) override;
  int status(const char* path, platform::FileStatus& status) override;
  int status(int fd, platform::FileStatus& status) override;
  int close(int fd) override { return real_.close(fd); }
  std::vector<std::string> regularFiles(const char* directory) override {
    return real_.regularFiles(directory);
  }
  int removeRegularFile(const char* directory, const char* name) override {
    return real_.removeRegularFile(directory, name);
  }

  std::atomic<Space> spaceMode{Space::Value};
  std::atomic<std::uint64_t> freeBytes{1ull << 40};
  std::optional<std::int64_t> diskFullAfter;
  std::int64_t written = 0;
  std::function<void(int fd)> beforeWrite;
  std::function<int(int fd)> onSync;
  std::atomic<int> syncs{0};
  std::atomic<int> reads{0};  // pread calls

 private:
  // How many of `size` bytes the next write may put, or -1 with errno set.
  ssize_t allowance(std::size_t size);
  // Puts the bytes through `put` and keeps the books of the faults.
  template <class Put>
  ssize_t faultyWrite(int fd, std::size_t size, Put&& put);
  bool dead() const;

  std::size_t maxWrite_ = 0;
  int writeError_ = 0;
  std::optional<std::size_t> crashBudget_;
  bool crashed_ = false;
  platform::FileSystem& real_ = *platform::FileSystem::posix();
};

}  // namespace zivora::test
