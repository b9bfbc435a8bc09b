#pragma once

#include "platform/FileIo.h"

namespace zivora::test {

// The real system calls, for a test to override the one or two it watches.
class ForwardingFileIo : public platform::FileIo {
 public:
  int open(const char* path, int flags, mode_t mode) override {
    return real_.open(path, flags, mode);
  }
  ssize_t pread(int fd, void* buffer, std::size_t size, off_t offset) override {
    return real_.pread(fd, buffer, size, offset);
  }
  ssize_t pwrite(int fd, const void* buffer, std::size_t size, off_t offset) override {
    return real_.pwrite(fd, buffer, size, offset);
  }
  off_t size(int fd) override { return real_.size(fd); }
  int ftruncate(int fd, off_t size) override { return real_.ftruncate(fd, size); }
  int fdatasync(int fd) override { return real_.fdatasync(fd); }
  int close(int fd) override { return real_.close(fd); }
  int unlink(const char* path) override { return real_.unlink(path); }
  int syncDirectory(const char* path) override { return real_.syncDirectory(path); }

 private:
  platform::FileIo& real_ = *platform::FileIo::posix();
};

}  // namespace zivora::test
