#pragma once

#include "platform/FileIo.h"

namespace zivora::platform {

// FileIo on the system calls themselves; EINTR is retried.
class PosixFileIo final : public FileIo {
 public:
  int open(const char* path, int flags, mode_t mode) override;
  ssize_t pread(int fd, void* buffer, std::size_t size, off_t offset) override;
  ssize_t pwrite(int fd, const void* buffer, std::size_t size, off_t offset) override;
  off_t size(int fd) override;
  int ftruncate(int fd, off_t size) override;
  int fdatasync(int fd) override;
  int close(int fd) override;
  int unlink(const char* path) override;
  int syncDirectory(const char* path) override;
};

}  // namespace zivora::platform
