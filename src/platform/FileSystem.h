#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace zivora::platform {

struct FreeSpace {
  bool ok = false;
  std::uint64_t bytes = 0;
  int error = 0;  // errno when !ok
};

// What a file is, as lstat(2) or fstat(2) see it.
struct FileStatus {
  bool regular = false;  // a regular file (a link is not followed)
  std::int64_t size = 0;
  std::int64_t modified = 0;  // seconds since the epoch
  std::uint64_t links = 0;    // 0 once the file is unlinked under an open descriptor
};

// Every file operation the SDK's persistent state makes (the event files,
// the resource cache, its syncs), behind one seam so that tests can make a
// disk full, a file system unreadable, a write short or a process die in
// the middle of one. Every call that returns an int or a size answers like
// its POSIX namesake: -1 with errno set on failure.
class FileSystem {
 public:
  virtual ~FileSystem() = default;

  virtual int open(const char* path, int flags, mode_t mode) = 0;
  virtual ssize_t pread(int fd, void* buffer, std::size_t size, off_t offset) = 0;
  virtual ssize_t pwrite(int fd, const void* buffer, std::size_t size, off_t offset) = 0;
  // write(2): appends at the descriptor's offset; the count may be short.
  virtual ssize_t write(int fd, const void* data, std::size_t size) = 0;
  // The file's size in bytes, or -1.
  virtual off_t size(int fd) = 0;
  virtual int ftruncate(int fd, off_t size) = 0;
  virtual int fdatasync(int fd) = 0;
  virtual int close(int fd) = 0;
  virtual int unlink(const char* path) = 0;
  // Makes a new directory entry durable: fsync of the directory itself.
  virtual int syncDirectory(const char* path) = 0;

  // lstat(2): a link at `path` is described, not followed.
  virtual int status(const char* path, FileStatus& status) = 0;
  // fstat(2).
  virtual int status(int fd, FileStatus& status) = 0;
  // The names of the regular files directly in `directory`, hidden ones
  // (a leading '.') and links left out; empty when it cannot be read.
  virtual std::vector<std::string> regularFiles(const char* directory) = 0;
  // Unlinks `name` inside `directory` only when it is a regular file: a
  // link is never followed and a directory never removed.
  virtual int removeRegularFile(const char* directory, const char* name) = 0;

  // Bytes an unprivileged process may still write on the file system that
  // holds `path` (f_bavail × f_frsize).
  virtual FreeSpace freeSpace(const std::filesystem::path& path) = 0;

  // The real system calls.
  static std::shared_ptr<FileSystem> posix();
};

}  // namespace zivora::platform
