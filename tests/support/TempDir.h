#pragma once

#include <filesystem>

namespace zivora::test {

// A fresh directory under the system's temporary directory, removed with
// everything in it when the object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace zivora::test
