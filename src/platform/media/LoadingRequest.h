#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace zivora::platform {

// What a byte-range source learns about the resource with its first read.
class ContentInformationRequest {
 public:
  virtual ~ContentInformationRequest() = default;
  virtual void setContentType(const std::string& type) = 0;
  virtual void setByteRangeAccessSupported(bool supported) = 0;
  // The full length; -1 or 0 when unknown.
  virtual void setContentLength(std::int64_t length) = 0;
};

// One read of the player on an asset served in-process ("customLoader://"):
// the requested range, how far answers have reached, and the means to
// answer. Delivered to the loader on the main queue; answers may come at
// once or later, as bytes arrive, from the main queue.
class LoadingRequest {
 public:
  virtual ~LoadingRequest() = default;

  virtual std::int64_t requestedOffset() const = 0;
  // As the player asked, not clipped to the resource's length.
  virtual std::int64_t requestedLength() const = 0;
  // Where the next answered byte goes: requestedOffset plus what has been
  // answered so far.
  virtual std::int64_t currentOffset() const = 0;
  virtual ContentInformationRequest& contentInformationRequest() = 0;

  // Appends bytes at currentOffset.
  virtual void respondWithData(const std::uint8_t* data, std::size_t size) = 0;
  // The request is complete; later answers are ignored.
  virtual void finishLoading() = 0;
  virtual bool isFinished() const = 0;
  // The player gave up on it (its item stopped); answers go nowhere.
  virtual bool isCancelled() const = 0;
};

// Serves an asset's reads; the progressive loader implements it.
class ResourceLoaderDelegate {
 public:
  virtual ~ResourceLoaderDelegate() = default;
  // True when the loader takes the request (now or later); false refuses it
  // and the read fails.
  virtual bool shouldWaitForLoadingOfRequestedResource(std::shared_ptr<LoadingRequest> request) = 0;
};

}  // namespace zivora::platform
