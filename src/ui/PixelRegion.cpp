#include "ui/PixelRegion.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zivora::ui {
namespace {

struct DeviceBox {
  double minX, minY, maxX, maxY;
};

// The device-space box of a user-space rectangle; the views only translate
// and scale, but the corners are taken all the same.
DeviceBox deviceBox(const cairo_matrix_t& matrix, const Rect& rect) {
  DeviceBox box{std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity(),
                -std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};
  for (double x : {rect.minX(), rect.maxX()}) {
    for (double y : {rect.minY(), rect.maxY()}) {
      double dx = x, dy = y;
      cairo_matrix_transform_point(&matrix, &dx, &dy);
      box = {std::min(box.minX, dx), std::min(box.minY, dy), std::max(box.maxX, dx),
             std::max(box.maxY, dy)};
    }
  }
  return box;
}

// Far beyond any canvas, yet safe to add to or subtract from.
int clampToPixels(double value) {
  constexpr double kLimit = 1 << 24;
  return static_cast<int>(std::clamp(value, -kLimit, kLimit));
}

cairo_rectangle_int_t fromEdges(double minX, double minY, double maxX, double maxY) {
  const int x0 = clampToPixels(minX), y0 = clampToPixels(minY);
  const int x1 = clampToPixels(maxX), y1 = clampToPixels(maxY);
  return {x0, y0, std::max(x1 - x0, 0), std::max(y1 - y0, 0)};
}

}  // namespace

PixelRegion::PixelRegion() : region_(cairo_region_create()) {}

PixelRegion::PixelRegion(const cairo_rectangle_int_t& rect)
    : region_(cairo_region_create_rectangle(&rect)) {}

bool PixelRegion::isEmpty() const { return cairo_region_is_empty(region_.get()); }

bool PixelRegion::contains(const cairo_rectangle_int_t& rect) const {
  return cairo_region_contains_rectangle(region_.get(), &rect) == CAIRO_REGION_OVERLAP_IN;
}

bool PixelRegion::intersects(const cairo_rectangle_int_t& rect) const {
  return cairo_region_contains_rectangle(region_.get(), &rect) != CAIRO_REGION_OVERLAP_OUT;
}

cairo_rectangle_int_t PixelRegion::extents() const {
  cairo_rectangle_int_t rect;
  cairo_region_get_extents(region_.get(), &rect);
  return rect;
}

std::vector<cairo_rectangle_int_t> PixelRegion::rectangles() const {
  std::vector<cairo_rectangle_int_t> rects(
      static_cast<std::size_t>(cairo_region_num_rectangles(region_.get())));
  for (std::size_t i = 0; i < rects.size(); ++i) {
    cairo_region_get_rectangle(region_.get(), static_cast<int>(i), &rects[i]);
  }
  return rects;
}

void PixelRegion::add(const cairo_rectangle_int_t& rect) {
  if (!isEmpty(rect)) cairo_region_union_rectangle(region_.get(), &rect);
}

void PixelRegion::add(const PixelRegion& other) {
  cairo_region_union(region_.get(), other.region_.get());
}

void PixelRegion::intersect(const cairo_rectangle_int_t& rect) {
  cairo_region_intersect_rectangle(region_.get(), &rect);
}

cairo_rectangle_int_t PixelRegion::touchedBy(const cairo_matrix_t& matrix, const Rect& rect) {
  if (rect.width() <= 0 || rect.height() <= 0) return {0, 0, 0, 0};
  const DeviceBox box = deviceBox(matrix, rect);
  return fromEdges(std::floor(box.minX), std::floor(box.minY), std::ceil(box.maxX),
                   std::ceil(box.maxY));
}

cairo_rectangle_int_t PixelRegion::coveredBy(const cairo_matrix_t& matrix, const Rect& rect) {
  if (rect.width() <= 0 || rect.height() <= 0) return {0, 0, 0, 0};
  const DeviceBox box = deviceBox(matrix, rect);
  return fromEdges(std::ceil(box.minX), std::ceil(box.minY), std::floor(box.maxX),
                   std::floor(box.maxY));
}

cairo_rectangle_int_t PixelRegion::intersection(const cairo_rectangle_int_t& a,
                                                const cairo_rectangle_int_t& b) {
  const int x0 = std::max(a.x, b.x), y0 = std::max(a.y, b.y);
  const int x1 = std::min(a.x + a.width, b.x + b.width);
  const int y1 = std::min(a.y + a.height, b.y + b.height);
  return {x0, y0, std::max(x1 - x0, 0), std::max(y1 - y0, 0)};
}

bool PixelRegion::encloses(const cairo_rectangle_int_t& outer, const cairo_rectangle_int_t& inner) {
  if (isEmpty(inner)) return true;
  return inner.x >= outer.x && inner.y >= outer.y &&
         inner.x + inner.width <= outer.x + outer.width &&
         inner.y + inner.height <= outer.y + outer.height;
}

}  // namespace zivora::ui
