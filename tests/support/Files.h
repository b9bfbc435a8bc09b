#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace zivora::test {

// A file's bytes, empty when it cannot be read.
inline std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Replaces the file with `bytes`, making its directory first.
inline void writeFile(const std::filesystem::path& path, const std::string& bytes) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

}  // namespace zivora::test
