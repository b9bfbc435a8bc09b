#include "platform/linux/PosixFileSystem.h"

#include <errno.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace zivora::platform {

FreeSpace PosixFileSystem::freeSpace(const std::filesystem::path& path) {
  struct statvfs info {};
  if (::statvfs(path.c_str(), &info) != 0) return {.ok = false, .bytes = 0, .error = errno};
  return {.ok = true,
          .bytes =
              static_cast<std::uint64_t>(info.f_bavail) * static_cast<std::uint64_t>(info.f_frsize),
          .error = 0};
}

ssize_t PosixFileSystem::write(int fd, const void* data, std::size_t size) {
  return ::write(fd, data, size);
}

int PosixFileSystem::sync(int fd) { return ::fdatasync(fd); }

}  // namespace zivora::platform
