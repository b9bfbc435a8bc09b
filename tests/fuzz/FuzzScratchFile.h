#pragma once

// One file that a fuzz target refills with each input, in a directory of
// the run's own that is removed when the run ends.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/TempDir.h"

namespace zivora::test {

class FuzzScratchFile {
 public:
  explicit FuzzScratchFile(const std::string& name) : path_(directory_.path() / name) {}

  const std::filesystem::path& directory() const { return directory_.path(); }
  const std::filesystem::path& path() const { return path_; }

  // Replaces the file's content with the input's bytes.
  void fill(const std::uint8_t* data, std::size_t size) const {
    std::ofstream(path_, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }

 private:
  TempDir directory_;
  std::filesystem::path path_;
};

// A line an event file may hand out: non-empty ASCII, one line, and not
// marked consumed with a leading '-'.
inline bool isLiveLine(const std::string& text) {
  if (text.empty() || text[0] == '-') return false;
  for (unsigned char c : text)
    if (c > 0x7F || c == '\n') return false;
  return true;
}

}  // namespace zivora::test
