#pragma once

#include <memory>

#include "platform/media/LoadingRequest.h"

namespace zivora::media {

// Serves the reads of an asset whose URL the player cannot load itself
// ("customLoader://…"). Called on the main queue, once per read.
class ResourceLoaderDelegate {
 public:
  virtual ~ResourceLoaderDelegate() = default;
  // True when the delegate takes the read (it answers and finishes it now or
  // later); false fails the read.
  virtual bool shouldWaitForLoadingOfRequestedResource(
      const std::shared_ptr<LoadingRequest>& loadingRequest) = 0;
};

}  // namespace zivora::media
