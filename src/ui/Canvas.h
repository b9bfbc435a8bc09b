#pragma once

#include <cairo.h>

#include <filesystem>
#include <memory>
#include <vector>

#include "ui/Color.h"
#include "ui/Geometry.h"
#include "ui/PixelRegion.h"

namespace zivora::ui {

class View;

// A drawing surface in memory: the view tree rendered at a scale (pixels
// per point). A presenter uploads its pixels to the window; without a
// display the same pixels can be written as PNG.
class Canvas {
 public:
  Canvas(Size points, double scale);

  Size points() const { return points_; }
  double scale() const { return scale_; }
  int pixelWidth() const;
  int pixelHeight() const;
  // Premultiplied ARGB, native-endian 32-bit pixels, `stride` bytes a row.
  const unsigned char* pixels() const;
  int stride() const;

  // All of the canvas' pixels.
  cairo_rectangle_int_t pixelBounds() const;

  // Clears to `background`, then draws `root` at its frame.
  void render(View& root, Color background = Color::clear());
  void clear(Color background);
  // Draws `root` at its frame over what the canvas holds.
  void draw(View& root);

  // Adds the pixels that changed in `root` since it was drawn here.
  void collectDamage(const View& root, PixelRegion& damage) const;
  // Draws `damage` anew: `background` there, unless an opaque view will
  // cover it all, then the roots in order; the rest of the canvas stays.
  void compose(const std::vector<View*>& roots, const PixelRegion& damage, Color background);
  // For changes that reach no pixel of the canvas: clears the redraw flags.
  void settle(View& root) const;
  // Attaches `data` to the surface the views draw into, for a view that
  // looks it up in its draw() (the surface lives as long as the canvas).
  void setUserData(const cairo_user_data_key_t* key, void* data);
  // False (and nothing written) when the file cannot be written.
  bool writePng(const std::filesystem::path& path) const;

 private:
  struct SurfaceDeleter {
    void operator()(cairo_surface_t* s) const { cairo_surface_destroy(s); }
  };

  cairo_matrix_t pointsToPixels() const;

  Size points_;
  double scale_;
  std::unique_ptr<cairo_surface_t, SurfaceDeleter> surface_;
};

}  // namespace zivora::ui
