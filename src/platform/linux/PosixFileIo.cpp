#include "platform/linux/PosixFileIo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace zivora::platform {
namespace {

template <class Call>
auto retryInterrupted(Call&& call) {
  for (;;) {
    auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

}  // namespace

std::shared_ptr<FileIo> FileIo::posix() {
  static const auto io = std::make_shared<PosixFileIo>();
  return io;
}

int PosixFileIo::open(const char* path, int flags, mode_t mode) {
  return retryInterrupted([&] { return ::open(path, flags | O_CLOEXEC, mode); });
}

ssize_t PosixFileIo::pread(int fd, void* buffer, std::size_t size, off_t offset) {
  return retryInterrupted([&] { return ::pread(fd, buffer, size, offset); });
}

ssize_t PosixFileIo::pwrite(int fd, const void* buffer, std::size_t size, off_t offset) {
  return retryInterrupted([&] { return ::pwrite(fd, buffer, size, offset); });
}

off_t PosixFileIo::size(int fd) {
  struct stat info {};
  if (::fstat(fd, &info) != 0) return -1;
  return info.st_size;
}

int PosixFileIo::ftruncate(int fd, off_t size) {
  return retryInterrupted([&] { return ::ftruncate(fd, size); });
}

int PosixFileIo::fdatasync(int fd) {
  return retryInterrupted([&] { return ::fdatasync(fd); });
}

// close() is not retried: on Linux the descriptor is gone even after EINTR.
int PosixFileIo::close(int fd) { return ::close(fd); }

int PosixFileIo::unlink(const char* path) { return ::unlink(path); }

int PosixFileIo::syncDirectory(const char* path) {
  int fd = open(path, O_RDONLY | O_DIRECTORY, 0);
  if (fd < 0) return -1;
  int result = retryInterrupted([&] { return ::fsync(fd); });
  int saved = errno;
  ::close(fd);
  errno = saved;
  return result;
}

}  // namespace zivora::platform
