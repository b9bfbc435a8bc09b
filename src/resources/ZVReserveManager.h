#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace zivora {

// Reference counts of cache files that an ad in use still needs; a
// reserved file is never evicted. Placement queues call it concurrently.
class ZVReserveManager {
 public:
  static std::shared_ptr<ZVReserveManager> defaultManager();

  void reserve(const std::string& fileName);
  void unreserve(const std::string& fileName);
  void unreserveAll(const std::string& fileName);
  bool isReserved(const std::string& fileName);

 private:
  std::mutex mutex_;
  // Present only while the count is at least 1.
  std::map<std::string, std::int32_t> files_;
};

}  // namespace zivora
