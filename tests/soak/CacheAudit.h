#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace zivora::soak {

// Checks the SDK's cache directory against the files the server serves.
// A cached file is named by the MD5 of its URL; its bytes must be the
// served file's (same size, same MD5) or, while its download is unfinished,
// a prefix of them. Anything else (other bytes, a longer file) is corrupt.
class CacheAudit {
 public:
  struct Result {
    std::size_t identical = 0;
    std::size_t partial = 0;
    std::size_t corrupt = 0;
    std::size_t unknown = 0;  // named after no URL of the catalogue
    std::vector<std::string> corruptNames;
  };

  // Each file of `mediaDirectory` as served under `baseUrl`/files/NAME.
  CacheAudit(const std::filesystem::path& mediaDirectory, const std::string& baseUrl);
  // For tests: URL -> served bytes.
  explicit CacheAudit(const std::map<std::string, std::string>& served);

  Result audit(const std::filesystem::path& cacheDirectory) const;

 private:
  struct Served {
    std::string name;
    std::string bytes;
    std::string md5;
  };
  void add(const std::string& url, std::string name, std::string bytes);

  // By the cached name's stem: the MD5 of the URL.
  std::map<std::string, Served> byStem_;
};

}  // namespace zivora::soak
