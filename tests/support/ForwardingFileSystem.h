#pragma once

#include "platform/FileSystem.h"

namespace zivora::test {

// The real system calls, for a test to override the one or two it watches.
class ForwardingFileSystem : public platform::FileSystem {
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
  ssize_t write(int fd, const void* data, std::size_t size) override {
    return real_.write(fd, data, size);
  }
  off_t size(int fd) override { return real_.size(fd); }
  int ftruncate(int fd, off_t size) override { return real_.ftruncate(fd, size); }
  int fdatasync(int fd) override { return real_.fdatasync(fd); }
  int close(int fd) override { return real_.close(fd); }
  int unlink(const char* path) override { return real_.unlink(path); }
  int syncDirectory(const char* path) override { return real_.syncDirectory(path); }
  int status(const char* path, platform::FileStatus& status) override {
    return real_.status(path, status);
  }
  int status(int fd, platform::FileStatus& status) override { return real_.status(fd, status); }
  std::vector<std::string> regularFiles(const char* directory) override {
    return real_.regularFiles(directory);
  }
  int removeRegularFile(const char* directory, const char* name) override {
    return real_.removeRegularFile(directory, name);
  }
  platform::FreeSpace freeSpace(const std::filesystem::path& path) override {
    return real_.freeSpace(path);
  }

 private:
  platform::FileSystem& real_ = *platform::FileSystem::posix();
};

}  // namespace zivora::test
