#pragma once

#include "ui/ZVCircularProgressLayer.h"

namespace zivora::ui {

// The skip control's ring with a two-stage arrow pointing right inside it.
class ZVSkipProgressLayer : public ZVCircularProgressLayer {
 public:
  void drawInContext(cairo_t* cr) override;

 private:
  void drawGlyph(cairo_t* cr) const;
};

}  // namespace zivora::ui
