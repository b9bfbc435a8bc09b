#include "ui/GridPixels.h"

#include <algorithm>
#include <cmath>

#include "ui/PixelRegion.h"

namespace zivora::ui {
namespace {

bool sameMatrix(const cairo_matrix_t& a, const cairo_matrix_t& b) {
  return a.xx == b.xx && a.yx == b.yx && a.xy == b.xy && a.yy == b.yy && a.x0 == b.x0 &&
         a.y0 == b.y0;
}

}  // namespace

void GridPixels::paint(cairo_t* cr, const Rect& extent,
                       const std::function<void(cairo_t*)>& paint) {
  cairo_matrix_t matrix;
  cairo_get_matrix(cr, &matrix);
  const double shiftX = std::floor(matrix.x0), shiftY = std::floor(matrix.y0);
  cairo_matrix_t grid = matrix;
  grid.x0 -= shiftX;
  grid.y0 -= shiftY;
  if (!kept_ || !sameMatrix(kept_->grid, grid) || !(kept_->extent == extent)) {
    const cairo_rectangle_int_t area = PixelRegion::touchedBy(grid, extent);
    std::shared_ptr<cairo_surface_t> pixels(
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, std::max(area.width, 1),
                                   std::max(area.height, 1)),
        cairo_surface_destroy);
    cairo_t* painter = cairo_create(pixels.get());
    cairo_matrix_t local = grid;
    local.x0 -= area.x;
    local.y0 -= area.y;
    cairo_set_matrix(painter, &local);
    paint(painter);
    cairo_destroy(painter);
    kept_ = Kept{std::move(pixels), grid, extent, area};
  }
  cairo_save(cr);
  cairo_identity_matrix(cr);
  cairo_set_source_surface(cr, kept_->pixels.get(), shiftX + kept_->area.x, shiftY + kept_->area.y);
  cairo_paint(cr);
  cairo_restore(cr);
}

}  // namespace zivora::ui
