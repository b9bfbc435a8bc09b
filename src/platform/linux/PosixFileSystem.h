#pragma once

#include "platform/FileSystem.h"

namespace zivora::platform {

// FileSystem on statvfs(2), write(2) and fdatasync(2).
class PosixFileSystem final : public FileSystem {
 public:
  FreeSpace freeSpace(const std::filesystem::path& path) override;
  ssize_t write(int fd, const void* data, std::size_t size) override;
  int sync(int fd) override;
};

}  // namespace zivora::platform
