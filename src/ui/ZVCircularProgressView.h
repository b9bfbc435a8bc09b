#pragma once

#include "ui/View.h"
#include "ui/ZVCircularProgressLayer.h"

namespace zivora::ui {

// A view backed by a progress ring.
class ZVCircularProgressView : public View {
 public:
  explicit ZVCircularProgressView(Rect frame = {});

  float progress() const { return progress_; }
  // Stores the value and passes it to the ring.
  void setProgress(float progress);

  ZVCircularProgressLayer& ring() const;

 private:
  float progress_ = 0;
};

}  // namespace zivora::ui
