#include "support/FakeFileSystem.h"

#include <errno.h>
#include <unistd.h>

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

ssize_t FakeFileSystem::write(int fd, const void* data, std::size_t size) {
  std::size_t allowed = size;
  if (diskFullAfter) {
    const std::int64_t room = std::max<std::int64_t>(0, *diskFullAfter - written);
    if (room == 0) {
      errno = ENOSPC;
      return -1;
    }
    allowed = std::min<std::size_t>(size, static_cast<std::size_t>(room));
  }
  const ssize_t done = ::write(fd, data, allowed);
  if (done > 0) written += done;
  return done;
}

int FakeFileSystem::sync(int fd) {
  ++syncs;
  return onSync ? onSync(fd) : 0;
}

}  // namespace zivora::test
