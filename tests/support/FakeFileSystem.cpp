#include "support/FakeFileSystem.h"

#include <errno.h>

#include <algorithm>
#include <stdexcept>

namespace zivora::test {

platform::FreeSpace FakeFileSystem::freeSpace(const std::filesystem::path&) {
  switch (spaceMode.load()) {
    case Space::Value:
      return {.ok = true, .bytes = freeBytes.load(), .error = 0};
    case Space::Unreadable:
      return {.ok = false, .bytes = 0, .error = EACCES};
    case Space::Throws:
      throw std::runtime_error("statvfs exploded");
  }
  return {};
}

bool FakeFileSystem::dead() const {
  if (crashed_) errno = EIO;
  return crashed_;
}

ssize_t FakeFileSystem::allowance(std::size_t size) {
  if (dead()) return -1;
  if (writeError_ != 0) {
    errno = writeError_;
    return -1;
  }
  if (maxWrite_ > 0) size = std::min(size, maxWrite_);
  if (diskFullAfter) {
    const std::int64_t room = std::max<std::int64_t>(0, *diskFullAfter - written);
    if (room == 0) {
      errno = ENOSPC;
      return -1;
    }
    size = std::min<std::size_t>(size, static_cast<std::size_t>(room));
  }
  return static_cast<ssize_t>(size);
}

template <class Put>
ssize_t FakeFileSystem::faultyWrite(int fd, std::size_t size, Put&& put) {
  if (beforeWrite) beforeWrite(fd);
  const ssize_t allowed = allowance(size);
  if (allowed < 0) return -1;
  if (!crashBudget_) {
    const ssize_t done = put(static_cast<std::size_t>(allowed));
    if (done > 0) written += done;
    return done;
  }
  // The bytes before the crash reach the file; the write that crashes
  // still reports a failure.
  const std::size_t reached = std::min(static_cast<std::size_t>(allowed), *crashBudget_);
  if (reached > 0) put(reached);
  *crashBudget_ -= reached;
  if (*crashBudget_ > 0) return static_cast<ssize_t>(reached);
  crashed_ = true;
  errno = EIO;
  return -1;
}

ssize_t FakeFileSystem::write(int fd, const void* data, std::size_t size) {
  return faultyWrite(fd, size, [&](std::size_t bytes) { return real_.write(fd, data, bytes); });
}

ssize_t FakeFileSystem::pwrite(int fd, const void* buffer, std::size_t size, off_t offset) {
  return faultyWrite(fd, size,
                     [&](std::size_t bytes) { return real_.pwrite(fd, buffer, bytes, offset); });
}

int FakeFileSystem::fdatasync(int fd) {
  if (dead()) return -1;
  ++syncs;
  return onSync ? onSync(fd) : 0;
}

int FakeFileSystem::open(const char* path, int flags, mode_t mode) {
  return dead() ? -1 : real_.open(path, flags, mode);
}
ssize_t FakeFileSystem::pread(int fd, void* buffer, std::size_t size, off_t offset) {
  ++reads;
  return dead() ? -1 : real_.pread(fd, buffer, size, offset);
}
off_t FakeFileSystem::size(int fd) { return dead() ? -1 : real_.size(fd); }
int FakeFileSystem::ftruncate(int fd, off_t size) {
  return dead() ? -1 : real_.ftruncate(fd, size);
}
int FakeFileSystem::unlink(const char* path) { return dead() ? -1 : real_.unlink(path); }
int FakeFileSystem::syncDirectory(const char* path) {
  return dead() ? -1 : real_.syncDirectory(path);
}
int FakeFileSystem::status(const char* path, platform::FileStatus& status) {
  return dead() ? -1 : real_.status(path, status);
}
int FakeFileSystem::status(int fd, platform::FileStatus& status) {
  return dead() ? -1 : real_.status(fd, status);
}

}  // namespace zivora::test
