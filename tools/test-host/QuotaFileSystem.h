#pragma once

#include <cstdint>
#include <filesystem>

#include "platform/linux/PosixFileSystem.h"

namespace testhost {

// The data root as if it lay on a small file system of its own: free space
// is the capacity less the bytes of every file under the root (a filler
// file that someone else puts there counts too), and a write that does not
// fit is cut short or fails with ENOSPC, as on a full disk. It lets a soak
// fill the cache's disk without mount rights and without filling the
// machine's real disk.
class QuotaFileSystem final : public zivora::platform::PosixFileSystem {
 public:
  QuotaFileSystem(std::filesystem::path root, std::uint64_t capacity);

  zivora::platform::FreeSpace freeSpace(const std::filesystem::path& path) override;
  ssize_t write(int fd, const void* data, std::size_t size) override;

 private:
  std::uint64_t bytesLeft() const;

  std::filesystem::path root_;
  std::uint64_t capacity_;
};

}  // namespace testhost
