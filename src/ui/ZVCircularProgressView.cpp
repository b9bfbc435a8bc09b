#include "ui/ZVCircularProgressView.h"

#include "util/Guard.h"

namespace zivora::ui {

ZVCircularProgressView::ZVCircularProgressView(Rect frame) : View(frame) {
  setLayer(std::make_unique<ZVCircularProgressLayer>());
}

ZVCircularProgressLayer& ZVCircularProgressView::ring() const {
  return static_cast<ZVCircularProgressLayer&>(*layer());
}

void ZVCircularProgressView::setProgress(float progress) {
  // Reported under the ring's class name, like the ring's own setter.
  guarded("ZVCircularProgressLayer", "setProgress", [&] {
    progress_ = progress;
    ring().setProgress(progress);
  });
}

}  // namespace zivora::ui
