#pragma once

#include <cairo.h>

#include <filesystem>
#include <memory>

#include "ui/Color.h"
#include "ui/Geometry.h"

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

  // Clears to `background`, then draws `root` at its frame.
  void render(View& root, Color background = Color::clear());
  void clear(Color background);
  // Draws `root` at its frame over what the canvas holds.
  void draw(View& root);
  // False (and nothing written) when the file cannot be written.
  bool writePng(const std::filesystem::path& path) const;

 private:
  struct SurfaceDeleter {
    void operator()(cairo_surface_t* s) const { cairo_surface_destroy(s); }
  };

  Size points_;
  double scale_;
  std::unique_ptr<cairo_surface_t, SurfaceDeleter> surface_;
};

}  // namespace zivora::ui
