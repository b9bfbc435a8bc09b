#pragma once

#include <cairo.h>

#include <functional>
#include <memory>
#include <optional>

#include "ui/Geometry.h"

namespace zivora::ui {

// A painting kept as pixels for the device grid it was made on: the
// drawing matrix less its whole-pixel shift. Painting that only moves by
// whole pixels is copied from them instead of drawn anew; any other change
// of the matrix, or of the painted extent, draws it again.
class GridPixels {
 public:
  // Copies into `cr` what `paint` draws within `extent` (user space),
  // running `paint` only when the kept pixels do not fit.
  void paint(cairo_t* cr, const Rect& extent, const std::function<void(cairo_t*)>& paint);
  // Drops the pixels: the next paint() draws.
  void reset() { kept_.reset(); }

 private:
  struct Kept {
    std::shared_ptr<cairo_surface_t> pixels;
    cairo_matrix_t grid;
    Rect extent;
    cairo_rectangle_int_t area;
  };
  std::optional<Kept> kept_;
};

}  // namespace zivora::ui
