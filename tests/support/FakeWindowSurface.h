#pragma once

#include <cstddef>
#include <vector>

#include "platform/WindowSurface.h"

namespace zivora::test {

// A 320 x 200 window on a 1920 x 1080 display that records what the
// presenter hands it and reports the events a test queues, as a real
// window's poll would.
class FakeWindowSurface final : public platform::WindowSurface {
 public:
  struct Shown {
    std::size_t damage = 0;
    std::vector<bool> freshPlanes;
  };

  platform::SurfaceSize size() const override { return {320, 200, 1}; }
  std::optional<platform::PixelSize> displayPixels() const override {
    return platform::PixelSize{1920, 1080};
  }
  bool showsVideoPlanes() const override { return showsPlanes; }
  bool isHostWindow() const override { return host; }
  void* nativeWindow() const override { return nullptr; }
  bool prepare(int width, int height) override { return width == 320 && height == 200; }
  void setShown(bool shown) override { visibility.push_back(shown); }
  void poll(const std::function<void(const platform::SurfaceEvent&)>& handle) override;
  // A native event here is a SurfaceEvent already.
  std::optional<platform::SurfaceEvent> translate(const void* native) override {
    return *static_cast<const platform::SurfaceEvent*>(native);
  }
  std::shared_ptr<const void> copyEvent(const void*) const override { return nullptr; }
  bool present(const platform::SurfaceFrame& frame) override;

  bool host = false;
  bool showsPlanes = true;
  bool canPresent = true;
  std::vector<bool> visibility;
  std::vector<Shown> frames;
  std::vector<platform::SurfaceEvent> pending;
};

}  // namespace zivora::test
