#pragma once

#include <cstdint>
#include <vector>

#include "resources/ZVDownloadFileInfo.h"

namespace zivora {

// Hears a batch of side resources. Both operations are optional; the
// defaults do nothing.
class ZVArrayLoaderHelperDelegate {
 public:
  virtual ~ZVArrayLoaderHelperDelegate() = default;
  // Every file of the batch is complete.
  virtual void finishLoadingResources(const std::vector<ZVDownloadFileInfo>& /*files*/) {}
  // One file failed (1: transfer, 2: free space); the others go on.
  virtual void errorLoadingResourcesByHelper(std::int32_t /*error*/) {}
};

}  // namespace zivora
