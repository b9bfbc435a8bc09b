#pragma once

#include <cstdint>
#include <memory>

namespace zivora {

class ZVVideoViewController;

// What a placement controller tells the registry that owns it.
class ZVVideoControllerDelegate {
 public:
  virtual ~ZVVideoControllerDelegate() = default;
  // The controller's ad screen has gone; it is done.
  virtual void hide(const std::shared_ptr<ZVVideoViewController>& controller) = 0;
  // The controller gave up with `error` (a host error code).
  virtual void didError(std::uint64_t error,
                        const std::shared_ptr<ZVVideoViewController>& controller) = 0;
};

}  // namespace zivora
