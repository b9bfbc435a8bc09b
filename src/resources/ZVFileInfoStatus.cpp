#include "resources/ZVFileInfoStatus.h"

#include <algorithm>

namespace zivora {

ZVFileInfoStatus::ZVFileInfoStatus(std::string fileName, std::string fileFullPath, std::string url)
    : fileFullPath_(std::move(fileFullPath)),
      fileName_(std::move(fileName)),
      url_(std::move(url)) {}

std::int32_t ZVFileInfoStatus::leftDownload() const {
  const std::int64_t left = std::int64_t{fullSize_} - loadedSize_;
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(left, 0, INT32_MAX));
}

}  // namespace zivora
