#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>

namespace zivora::platform {

struct FreeSpace {
  bool ok = false;
  std::uint64_t bytes = 0;
  int error = 0;  // errno when !ok
};

// The few file operations whose failures the resource cache must survive;
// tests replace them to make a disk full, a file system unreadable or a
// write short.
class FileSystem {
 public:
  virtual ~FileSystem() = default;
  // Bytes an unprivileged process may still write on the file system that
  // holds `path` (f_bavail × f_frsize).
  virtual FreeSpace freeSpace(const std::filesystem::path& path) = 0;
  // write(2): the count written, or -1 with errno set.
  virtual ssize_t write(int fd, const void* data, std::size_t size) = 0;
  // fdatasync(2): 0, or -1 with errno set.
  virtual int sync(int fd) = 0;
};

}  // namespace zivora::platform
