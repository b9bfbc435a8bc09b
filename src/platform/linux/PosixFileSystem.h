#pragma once

#include "platform/FileSystem.h"

namespace zivora::platform {

// FileSystem on the system calls themselves; EINTR is retried. Not final:
// a tool that plays a small disk overrides free space and writes only.
class PosixFileSystem : public FileSystem {
 public:
  int open(const char* path, int flags, mode_t mode) override;
  ssize_t pread(int fd, void* buffer, std::size_t size, off_t offset) override;
  ssize_t pwrite(int fd, const void* buffer, std::size_t size, off_t offset) override;
  ssize_t write(int fd, const void* data, std::size_t size) override;
  off_t size(int fd) override;
  int ftruncate(int fd, off_t size) override;
  int fdatasync(int fd) override;
  int close(int fd) override;
  int unlink(const char* path) override;
  int syncDirectory(const char* path) override;
  int status(const char* path, FileStatus& status) override;
  int status(int fd, FileStatus& status) override;
  std::vector<std::string> regularFiles(const char* directory) override;
  int removeRegularFile(const char* directory, const char* name) override;
  FreeSpace freeSpace(const std::filesystem::path& path) override;
};

}  // namespace zivora::platform
