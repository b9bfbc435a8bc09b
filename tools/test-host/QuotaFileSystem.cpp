#include "QuotaFileSystem.h"

#include <errno.h>

#include <algorithm>

namespace testhost {

QuotaFileSystem::QuotaFileSystem(std::filesystem::path root, std::uint64_t capacity)
    : root_(std::move(root)), capacity_(capacity) {}

std::uint64_t QuotaFileSystem::bytesLeft() const {
  namespace fs = std::filesystem;
  std::uint64_t used = 0;
  std::error_code error;
  // Files come and go under the walk (downloads, the SDK's own queues);
  // what vanished simply does not count.
  for (fs::recursive_directory_iterator
           it(root_, fs::directory_options::skip_permission_denied, error),
       end;
       !error && it != end; it.increment(error)) {
    std::error_code sizeError;
    if (it->is_regular_file(sizeError)) {
      const auto size = it->file_size(sizeError);
      if (!sizeError) used += size;
    }
  }
  return used >= capacity_ ? 0 : capacity_ - used;
}

zivora::platform::FreeSpace QuotaFileSystem::freeSpace(const std::filesystem::path&) {
  return {.ok = true, .bytes = bytesLeft(), .error = 0};
}

ssize_t QuotaFileSystem::write(int fd, const void* data, std::size_t size) {
  const std::uint64_t left = bytesLeft();
  if (left == 0) {
    errno = ENOSPC;
    return -1;
  }
  return PosixFileSystem::write(fd, data,
                                static_cast<std::size_t>(std::min<std::uint64_t>(size, left)));
}

}  // namespace testhost
