#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>

#include "platform/FileSystem.h"

namespace zivora::test {

// The file seam with faults on demand: a free-space figure, an unreadable
// file system or a throw, and a disk that fills after a number of bytes.
class FakeFileSystem final : public platform::FileSystem {
 public:
  enum class Space { Value, Unreadable, Throws };

  platform::FreeSpace freeSpace(const std::filesystem::path& path) override;
  ssize_t write(int fd, const void* data, std::size_t size) override;
  // Calls `onSync` (when set) and counts; the data is not flushed, since
  // nothing here survives a real crash anyway. A throwing `onSync` stands
  // for a process that dies inside the sync.
  int sync(int fd) override;

  std::atomic<Space> spaceMode{Space::Value};
  std::atomic<std::uint64_t> freeBytes{1ull << 40};
  // Writes beyond this many bytes in total are cut short, then fail with
  // ENOSPC; unset writes everything.
  std::optional<std::int64_t> diskFullAfter;
  std::int64_t written = 0;
  std::function<int(int fd)> onSync;
  std::atomic<int> syncs{0};
};

}  // namespace zivora::test
