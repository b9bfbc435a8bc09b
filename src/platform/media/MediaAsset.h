#pragma once

#include <memory>
#include <string>

#include "platform/media/LoadingRequest.h"

namespace zivora::platform {

// What a player item is made from: a local file, or a "customLoader://"
// address whose bytes the loader serves while the file is still arriving.
struct MediaAsset {
  std::string url;
  // Set for "customLoader://" assets; the asset does not own it.
  std::weak_ptr<ResourceLoaderDelegate> loader;
};

}  // namespace zivora::platform
