#include "support/FakeWindowSurface.h"

#include <utility>

namespace zivora::test {

void FakeWindowSurface::poll(const std::function<void(const platform::SurfaceEvent&)>& handle) {
  auto events = std::exchange(pending, {});
  for (const auto& event : events) handle(event);
}

bool FakeWindowSurface::present(const platform::SurfaceFrame& frame) {
  Shown shown{frame.damage.size(), {}};
  for (const auto& plane : frame.planes) shown.freshPlanes.push_back(plane.fresh);
  frames.push_back(shown);
  return canPresent;
}

}  // namespace zivora::test
