#pragma once

#include <cerrno>
#include <cstddef>
#include <optional>

#include "platform/FileIo.h"

namespace zivora::test {

// The real system calls with faults on demand:
//   crashAfter(n)   the next n bytes are written, then the "process dies":
//                   the write stops there and every later call fails
//   failWrites(e)   every write fails with errno e (ENOSPC: a full disk)
//   shortWrites(n)  no single write puts more than n bytes
class FaultyFileIo final : public platform::FileIo {
 public:
  void crashAfter(std::size_t bytes) { crashBudget_ = bytes; }
  void failWrites(int error) { writeError_ = error; }
  void shortWrites(std::size_t bytes) { maxWrite_ = bytes; }

  int open(const char* path, int flags, mode_t mode) override;
  ssize_t pread(int fd, void* buffer, std::size_t size, off_t offset) override;
  ssize_t pwrite(int fd, const void* buffer, std::size_t size, off_t offset) override;
  off_t size(int fd) override;
  int ftruncate(int fd, off_t size) override;
  int fdatasync(int fd) override;
  int close(int fd) override;
  int unlink(const char* path) override;
  int syncDirectory(const char* path) override;

 private:
  bool dead();

  platform::FileIo& real_ = *platform::FileIo::posix();
  std::optional<std::size_t> crashBudget_;
  int writeError_ = 0;
  std::size_t maxWrite_ = 0;
  bool crashed_ = false;
};

}  // namespace zivora::test
