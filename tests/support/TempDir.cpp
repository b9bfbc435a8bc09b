#include "support/TempDir.h"

#include <stdlib.h>

#include <stdexcept>
#include <string>

namespace zivora::test {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "zivora-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace zivora::test
