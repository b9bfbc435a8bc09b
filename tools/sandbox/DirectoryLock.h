#pragma once

#include <filesystem>

namespace zivora::sandbox {

// An exclusive lock on DIR/.lock (flock) held for the object's lifetime, so
// that processes making files in one shared directory take turns. Throws
// std::runtime_error when the lock cannot be taken.
class DirectoryLock {
 public:
  explicit DirectoryLock(const std::filesystem::path& directory);
  ~DirectoryLock();
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

 private:
  int fd_;
};

}  // namespace zivora::sandbox
