#include "ui/Canvas.h"

#include <algorithm>
#include <cmath>

#include "ui/View.h"

namespace zivora::ui {
namespace {
int pixelCount(double points, double scale) {
  return static_cast<int>(std::ceil(std::max(points, 0.0) * scale));
}
}  // namespace

Canvas::Canvas(Size points, double scale)
    : points_(points),
      scale_(scale > 0 ? scale : 1),
      surface_(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, pixelCount(points.width, scale_),
                                          pixelCount(points.height, scale_))) {}

int Canvas::pixelWidth() const { return cairo_image_surface_get_width(surface_.get()); }

int Canvas::pixelHeight() const { return cairo_image_surface_get_height(surface_.get()); }

const unsigned char* Canvas::pixels() const {
  cairo_surface_flush(surface_.get());
  return cairo_image_surface_get_data(surface_.get());
}

int Canvas::stride() const { return cairo_image_surface_get_stride(surface_.get()); }

void Canvas::render(View& root, Color background) {
  clear(background);
  draw(root);
}

void Canvas::clear(Color background) {
  cairo_t* cr = cairo_create(surface_.get());
  cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
  cairo_set_source_rgba(cr, background.red, background.green, background.blue, background.alpha);
  cairo_paint(cr);
  cairo_destroy(cr);
}

void Canvas::draw(View& root) {
  cairo_t* cr = cairo_create(surface_.get());
  cairo_scale(cr, scale_, scale_);
  root.render(cr);
  cairo_destroy(cr);
}

bool Canvas::writePng(const std::filesystem::path& path) const {
  return cairo_surface_write_to_png(surface_.get(), path.c_str()) == CAIRO_STATUS_SUCCESS;
}

}  // namespace zivora::ui
