#include "CacheAudit.h"

#include "support/Files.h"
#include "util/ZVHash.h"

namespace zivora::soak {
namespace fs = std::filesystem;

CacheAudit::CacheAudit(const fs::path& mediaDirectory, const std::string& baseUrl) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(mediaDirectory, error)) {
    const std::string name = entry.path().filename().string();
    if (!entry.is_regular_file() || name.front() == '.') continue;
    add(baseUrl + "/files/" + name, name, test::readFile(entry.path()));
  }
}

CacheAudit::CacheAudit(const std::map<std::string, std::string>& served) {
  for (const auto& [url, bytes] : served) add(url, url, bytes);
}

void CacheAudit::add(const std::string& url, std::string name, std::string bytes) {
  std::string md5 = ZVHash::md5Hex(bytes);
  byStem_[ZVHash::md5Hex(url)] = {std::move(name), std::move(bytes), std::move(md5)};
}

CacheAudit::Result CacheAudit::audit(const fs::path& cacheDirectory) const {
  Result result;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(cacheDirectory, error)) {
    if (!entry.is_regular_file()) continue;
    const auto served = byStem_.find(entry.path().stem().string());
    if (served == byStem_.end()) {
      ++result.unknown;
      continue;
    }
    const std::string bytes = test::readFile(entry.path());
    const Served& expected = served->second;
    if (bytes.size() == expected.bytes.size() && ZVHash::md5Hex(bytes) == expected.md5) {
      ++result.identical;
    } else if (bytes.size() < expected.bytes.size() &&
               expected.bytes.compare(0, bytes.size(), bytes) == 0) {
      ++result.partial;
    } else {
      ++result.corrupt;
      result.corruptNames.push_back(expected.name + " (" + entry.path().filename().string() + ", " +
                                    std::to_string(bytes.size()) + " bytes)");
    }
  }
  return result;
}

}  // namespace zivora::soak
