#pragma once

#include <cairo.h>

#include <filesystem>
#include <memory>

#include "ui/View.h"

namespace zivora::ui {

// An image from a file (PNG, JPEG or WebP), drawn aspect-fit and centred in
// the bounds. A file that is missing or does not decode gives an empty view,
// with a log line. Takes no taps unless switched on.
class ImageView : public View {
 public:
  explicit ImageView(Rect frame = {});

  // False when nothing could be loaded; the view is then empty.
  bool setImageFile(const std::filesystem::path& path);
  bool hasImage() const { return image_ != nullptr; }
  Size imageSize() const;

 protected:
  void draw(cairo_t* cr) override;
  bool drawsContent() const override { return hasImage(); }

 private:
  struct SurfaceDeleter {
    void operator()(cairo_surface_t* s) const { cairo_surface_destroy(s); }
  };
  std::unique_ptr<cairo_surface_t, SurfaceDeleter> image_;
};

}  // namespace zivora::ui
