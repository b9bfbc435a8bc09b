#pragma once

#include <cstdint>
#include <string>

namespace zivora {

// One file of the cache as the accountant sees it: its age is the time of
// its last write, in whole seconds since 1970.
class ZVCacheFile {
 public:
  std::int32_t timeCreated() const { return timeCreated_; }
  void setTimeCreated(std::int32_t time) { timeCreated_ = time; }
  const std::string& fileName() const { return fileName_; }
  void setFileName(std::string name) { fileName_ = std::move(name); }
  std::int64_t size() const { return size_; }
  void setSize(std::int64_t size) { size_ = size; }

 private:
  std::int32_t timeCreated_ = 0;
  std::string fileName_;
  std::int64_t size_ = 0;
};

}  // namespace zivora
