#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace zivora {

// The status of one file's download. Where it goes and where it comes from
// never change; the sizes and the ready flag are written on the main queue
// and read from any thread.
class ZVFileInfoStatus {
 public:
  ZVFileInfoStatus(std::string fileName, std::string fileFullPath, std::string url);

  bool isReady() const { return isReady_; }
  void setIsReady(bool ready) { isReady_ = ready; }
  // The total announced by the server; 0 until known.
  std::int32_t fullSize() const { return fullSize_; }
  void setFullSize(std::int32_t size) { fullSize_ = size; }
  const std::string& fileFullPath() const { return fileFullPath_; }
  const std::string& fileName() const { return fileName_; }
  std::int64_t loadedSize() const { return loadedSize_; }
  void setLoadedSize(std::int64_t size) { loadedSize_ = size; }
  void addLoadedSize(std::int64_t bytes) { loadedSize_ += bytes; }
  const std::string& url() const { return url_; }

  // The bytes still to come, never negative.
  std::int32_t leftDownload() const;

 private:
  std::atomic<bool> isReady_{false};
  std::atomic<std::int32_t> fullSize_{0};
  const std::string fileFullPath_;
  const std::string fileName_;
  std::atomic<std::int64_t> loadedSize_{0};
  const std::string url_;
};

}  // namespace zivora
