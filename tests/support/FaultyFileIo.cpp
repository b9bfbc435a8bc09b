#include "support/FaultyFileIo.h"

#include <algorithm>

namespace zivora::test {

bool FaultyFileIo::dead() {
  if (crashed_) errno = EIO;
  return crashed_;
}

int FaultyFileIo::open(const char* path, int flags, mode_t mode) {
  return dead() ? -1 : real_.open(path, flags, mode);
}

ssize_t FaultyFileIo::pread(int fd, void* buffer, std::size_t size, off_t offset) {
  return dead() ? -1 : real_.pread(fd, buffer, size, offset);
}

ssize_t FaultyFileIo::pwrite(int fd, const void* buffer, std::size_t size, off_t offset) {
  if (dead()) return -1;
  if (writeError_ != 0) {
    errno = writeError_;
    return -1;
  }
  if (maxWrite_ > 0) size = std::min(size, maxWrite_);
  if (crashBudget_) {
    std::size_t allowed = std::min(size, *crashBudget_);
    if (allowed > 0) real_.pwrite(fd, buffer, allowed, offset);
    *crashBudget_ -= allowed;
    if (*crashBudget_ == 0) {
      crashed_ = true;
      errno = EIO;
      return -1;
    }
    return static_cast<ssize_t>(allowed);
  }
  return real_.pwrite(fd, buffer, size, offset);
}

off_t FaultyFileIo::size(int fd) { return dead() ? -1 : real_.size(fd); }

int FaultyFileIo::ftruncate(int fd, off_t size) { return dead() ? -1 : real_.ftruncate(fd, size); }

int FaultyFileIo::fdatasync(int fd) { return dead() ? -1 : real_.fdatasync(fd); }

// A dead process still has its descriptors closed by the kernel.
int FaultyFileIo::close(int fd) { return real_.close(fd); }

int FaultyFileIo::unlink(const char* path) { return dead() ? -1 : real_.unlink(path); }

int FaultyFileIo::syncDirectory(const char* path) {
  return dead() ? -1 : real_.syncDirectory(path);
}

}  // namespace zivora::test
