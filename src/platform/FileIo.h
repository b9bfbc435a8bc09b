#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>

namespace zivora::platform {

// The few system calls that the event files make, behind one seam so that
// tests can inject short writes, a crash after N bytes or a full disk.
// Every call answers like its POSIX namesake: -1 with errno set on failure.
class FileIo {
 public:
  virtual ~FileIo() = default;

  virtual int open(const char* path, int flags, mode_t mode) = 0;
  virtual ssize_t pread(int fd, void* buffer, std::size_t size, off_t offset) = 0;
  virtual ssize_t pwrite(int fd, const void* buffer, std::size_t size, off_t offset) = 0;
  // The file's size in bytes, or -1.
  virtual off_t size(int fd) = 0;
  virtual int ftruncate(int fd, off_t size) = 0;
  virtual int fdatasync(int fd) = 0;
  virtual int close(int fd) = 0;
  virtual int unlink(const char* path) = 0;
  // Makes a new directory entry durable: fsync of the directory itself.
  virtual int syncDirectory(const char* path) = 0;

  // The real system calls.
  static std::shared_ptr<FileIo> posix();
};

}  // namespace zivora::platform
