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

cairo_rectangle_int_t Canvas::pixelBounds() const { return {0, 0, pixelWidth(), pixelHeight()}; }

cairo_matrix_t Canvas::pointsToPixels() const {
  cairo_matrix_t matrix;
  cairo_matrix_init_scale(&matrix, scale_, scale_);
  return matrix;
}

void Canvas::render(View& root, Color background) {
  compose({&root}, PixelRegion(pixelBounds()), background);
}

void Canvas::collectDamage(const View& root, PixelRegion& damage) const {
  root.collectDamage(pointsToPixels(), damage);
}

void Canvas::settle(View& root) const { root.settle(pointsToPixels()); }

void Canvas::compose(const std::vector<View*>& roots, const PixelRegion& damage, Color background) {
  cairo_t* cr = cairo_create(surface_.get());
  for (const auto& rect : damage.rectangles()) {
    cairo_rectangle(cr, rect.x, rect.y, rect.width, rect.height);
  }
  cairo_clip(cr);
  // Video under the controls fills the screen with opaque pixels: clearing
  // first would only write every pixel twice.
  const cairo_matrix_t matrix = pointsToPixels();
  const cairo_rectangle_int_t area = damage.extents();
  if (std::none_of(roots.begin(), roots.end(),
                   [&](const View* root) { return root->opaquelyCovers(matrix, area); })) {
    cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
    cairo_set_source_rgba(cr, background.red, background.green, background.blue, background.alpha);
    cairo_paint(cr);
    cairo_set_operator(cr, CAIRO_OPERATOR_OVER);
  }
  cairo_set_matrix(cr, &matrix);
  for (View* root : roots) root->render(cr);
  cairo_destroy(cr);
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

void Canvas::setUserData(const cairo_user_data_key_t* key, void* data) {
  cairo_surface_set_user_data(surface_.get(), key, data, nullptr);
}

bool Canvas::writePng(const std::filesystem::path& path) const {
  return cairo_surface_write_to_png(surface_.get(), path.c_str()) == CAIRO_STATUS_SUCCESS;
}

}  // namespace zivora::ui
