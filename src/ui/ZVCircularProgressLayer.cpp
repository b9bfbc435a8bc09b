#include "ui/ZVCircularProgressLayer.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "ui/PixelRegion.h"
#include "util/Guard.h"

namespace zivora::ui {
namespace {

constexpr double kMargin = 0.5;

struct Arc {
  double radius;
  int endDegrees;
  double lineWidth;
  double red, green, blue, alpha;
};

void stroke(cairo_t* cr, Point centre, const Arc& arc) {
  cairo_new_path(cr);
  cairo_arc(cr, centre.x, centre.y, arc.radius, ZVCircularProgressLayer::degreeToRadiansFromTop(0),
            ZVCircularProgressLayer::degreeToRadiansFromTop(arc.endDegrees));
  cairo_set_line_width(cr, arc.lineWidth);
  cairo_set_line_cap(cr, CAIRO_LINE_CAP_SQUARE);
  cairo_set_source_rgba(cr, arc.red, arc.green, arc.blue, arc.alpha);
  cairo_stroke(cr);
}

}  // namespace

void ZVCircularProgressLayer::setProgress(float progress) {
  guarded("ZVCircularProgressLayer", "setProgress", [&] {
    progress_ = progress;
    setNeedsDisplay();
  });
}

double ZVCircularProgressLayer::degreeToRadiansFromTop(int degrees) {
  return (degrees - 90) * std::numbers::pi / 180;
}

int ZVCircularProgressLayer::progressEndDegrees(float progress) {
  const double degrees = static_cast<double>(progress) * 360;
  if (!std::isfinite(degrees) || degrees >= 360) return 360;
  if (degrees <= 0) return 0;
  return static_cast<int>(degrees);
}

void ZVCircularProgressLayer::drawInContext(cairo_t* cr) {
  guarded("ZVCircularProgressLayer", "drawInContext", [&] { drawRing(cr); });
}

void ZVCircularProgressLayer::strokeRims(cairo_t* cr) const {
  const double d = frame().size.shorterSide();
  const Point centre{frame().width() / 2, frame().height() / 2};
  const double thin = d / 70;
  const double thick = 7 * d / 79;
  stroke(cr, centre, {d / 2 - thin / 2 - kMargin, 360, thin, 0, 0, 0, 1});
  stroke(cr, centre, {d / 2 - 1.5 * thin - thick - kMargin, 360, thin, 0, 0, 0, 1});
  stroke(cr, centre, {d / 2 - thin - thick / 2 - kMargin, 360, thick, 0.5, 0.5, 0.5, 0.5});
}

void ZVCircularProgressLayer::paintRims(cairo_t* cr) const {
  cairo_matrix_t matrix;
  cairo_get_matrix(cr, &matrix);
  const double shiftX = std::floor(matrix.x0), shiftY = std::floor(matrix.y0);
  cairo_matrix_t grid = matrix;
  grid.x0 -= shiftX;
  grid.y0 -= shiftY;
  const auto sameGrid = [&](const cairo_matrix_t& other) {
    return grid.xx == other.xx && grid.yx == other.yx && grid.xy == other.xy &&
           grid.yy == other.yy && grid.x0 == other.x0 && grid.y0 == other.y0;
  };
  const Size size = frame().size;
  if (!rims_ || !sameGrid(rims_->grid) || rims_->size.width != size.width ||
      rims_->size.height != size.height) {
    // The strokes stay inside the ring's bounds.
    const cairo_rectangle_int_t area = PixelRegion::touchedBy(grid, {{0, 0}, size});
    std::shared_ptr<cairo_surface_t> pixels(
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, std::max(area.width, 1),
                                   std::max(area.height, 1)),
        cairo_surface_destroy);
    cairo_t* painter = cairo_create(pixels.get());
    cairo_matrix_t local = grid;
    local.x0 -= area.x;
    local.y0 -= area.y;
    cairo_set_matrix(painter, &local);
    strokeRims(painter);
    cairo_destroy(painter);
    rims_ = Rims{std::move(pixels), grid, area, size};
  }
  cairo_save(cr);
  cairo_identity_matrix(cr);
  cairo_set_source_surface(cr, rims_->pixels.get(), shiftX + rims_->area.x, shiftY + rims_->area.y);
  cairo_paint(cr);
  cairo_restore(cr);
}

void ZVCircularProgressLayer::drawRing(cairo_t* cr) const {
  paintRims(cr);
  const double d = frame().size.shorterSide();
  const Point centre{frame().width() / 2, frame().height() / 2};
  const double thin = d / 70;
  const double thick = 7 * d / 79;
  const double bandRadius = d / 2 - thin - thick / 2 - kMargin;
  stroke(cr, centre, {bandRadius, progressEndDegrees(progress_), thick, 0.93, 0.93, 0.93, 1});
}

}  // namespace zivora::ui
