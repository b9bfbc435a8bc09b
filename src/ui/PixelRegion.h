#pragma once

#include <cairo.h>

#include <memory>
#include <vector>

#include "ui/Geometry.h"

namespace zivora::ui {

// A set of whole device pixels (a canvas' damage, or what is known to be
// covered), kept as cairo keeps clip regions: a few disjoint rectangles.
class PixelRegion {
 public:
  PixelRegion();
  explicit PixelRegion(const cairo_rectangle_int_t& rect);

  bool isEmpty() const;
  bool contains(const cairo_rectangle_int_t& rect) const;
  bool intersects(const cairo_rectangle_int_t& rect) const;
  cairo_rectangle_int_t extents() const;
  std::vector<cairo_rectangle_int_t> rectangles() const;

  void add(const cairo_rectangle_int_t& rect);
  void add(const PixelRegion& other);
  void intersect(const cairo_rectangle_int_t& rect);

  // The pixels `rect` (user space of `matrix`) touches at all: where
  // drawing inside it may leave a mark.
  static cairo_rectangle_int_t touchedBy(const cairo_matrix_t& matrix, const Rect& rect);
  // The pixels `rect` covers entirely: where an opaque fill of it leaves
  // no antialiased edge.
  static cairo_rectangle_int_t coveredBy(const cairo_matrix_t& matrix, const Rect& rect);
  static bool isEmpty(const cairo_rectangle_int_t& rect) {
    return rect.width <= 0 || rect.height <= 0;
  }
  static cairo_rectangle_int_t intersection(const cairo_rectangle_int_t& a,
                                            const cairo_rectangle_int_t& b);
  // Every pixel of `inner` lies in `outer` (an empty `inner` always does).
  static bool encloses(const cairo_rectangle_int_t& outer, const cairo_rectangle_int_t& inner);

 private:
  struct RegionDeleter {
    void operator()(cairo_region_t* region) const { cairo_region_destroy(region); }
  };
  std::unique_ptr<cairo_region_t, RegionDeleter> region_;
};

}  // namespace zivora::ui
