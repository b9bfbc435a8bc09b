#pragma once

#include <cstdint>
#include <string>

namespace zivora {

// Hears one file's download. Every operation is optional: the default does
// nothing, which is what a listener without the operation gets. Called on
// the main queue.
class ZVDownloadDelegate {
 public:
  virtual ~ZVDownloadDelegate() = default;

  // A response was accepted and writing begins (not sent on a resume).
  virtual void startLoading(const std::string& /*fileName*/) {}
  // `bytes` were just written.
  virtual void receiveData(std::int64_t /*bytes*/) {}
  virtual void finishLoading(const std::string& /*fileName*/) {}
  // 1: the transfer failed; 2: not enough free space to start.
  virtual void errorLoadingResource(const std::string& /*fileName*/, std::int32_t /*error*/) {}
};

}  // namespace zivora
