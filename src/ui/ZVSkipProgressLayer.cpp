#include "ui/ZVSkipProgressLayer.h"

#include <array>

#include "util/Guard.h"

namespace zivora::ui {
namespace {
// The arrow's corners in units of the shorter side, y downwards.
constexpr std::array<Point, 7> kGlyph{{{0.28, 0.28},
                                       {0.53, 0.46},
                                       {0.53, 0.285},
                                       {0.825, 0.5},
                                       {0.53, 0.725},
                                       {0.53, 0.54},
                                       {0.28, 0.73}}};
}  // namespace

void ZVSkipProgressLayer::drawInContext(cairo_t* cr) {
  guarded("ZVSkipProgressLayer", "drawInContext", [&] {
    drawRing(cr);
    drawGlyph(cr);
  });
}

void ZVSkipProgressLayer::drawGlyph(cairo_t* cr) const {
  const double d = frame().size.shorterSide();
  cairo_new_path(cr);
  cairo_move_to(cr, kGlyph[0].x * d, kGlyph[0].y * d);
  for (std::size_t i = 1; i < kGlyph.size(); ++i)
    cairo_line_to(cr, kGlyph[i].x * d, kGlyph[i].y * d);
  cairo_close_path(cr);
  cairo_set_line_width(cr, d / 70);
  cairo_set_source_rgba(cr, 1, 1, 1, 1);
  cairo_fill_preserve(cr);
  cairo_set_source_rgba(cr, 0, 0, 0, 1);
  cairo_stroke(cr);
}

}  // namespace zivora::ui
