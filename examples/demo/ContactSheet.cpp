#include "ContactSheet.h"

#include <algorithm>
#include <cstring>

namespace demo {
namespace {
constexpr double kFrameWidth = 480;
constexpr double kCaptionHeight = 28;
constexpr double kGap = 12;
}  // namespace

void ContactSheet::add(const zivora::ZivoraScreenImage& image, std::string caption) {
  const int width = image.width;
  const int height = image.height;
  if (width <= 0 || height <= 0 || image.pixels.size() < std::size_t(image.stride) * height) return;
  std::unique_ptr<cairo_surface_t, SurfaceDeleter> copy(
      cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height));
  cairo_surface_flush(copy.get());
  const int stride = cairo_image_surface_get_stride(copy.get());
  unsigned char* target = cairo_image_surface_get_data(copy.get());
  for (int row = 0; row < height; ++row) {
    // The picture's pixels are cairo's own format; only the row widths may differ.
    std::memcpy(target + row * stride, image.pixels.data() + row * image.stride,
                static_cast<std::size_t>(std::min(stride, image.stride)));
  }
  cairo_surface_mark_dirty(copy.get());
  frames_.push_back({std::move(copy), std::move(caption)});
}

bool ContactSheet::write(const std::filesystem::path& file) const {
  if (frames_.empty()) return false;
  double frameHeight = 0;
  for (const auto& frame : frames_) {
    const double scale = kFrameWidth / cairo_image_surface_get_width(frame.image.get());
    frameHeight = std::max(frameHeight, cairo_image_surface_get_height(frame.image.get()) * scale);
  }
  const double width = kGap + frames_.size() * (kFrameWidth + kGap);
  const double height = kGap + frameHeight + kCaptionHeight + kGap;
  std::unique_ptr<cairo_surface_t, SurfaceDeleter> sheet(cairo_image_surface_create(
      CAIRO_FORMAT_RGB24, static_cast<int>(width), static_cast<int>(height)));
  cairo_t* cr = cairo_create(sheet.get());
  cairo_set_source_rgb(cr, 0.15, 0.15, 0.17);
  cairo_paint(cr);
  double x = kGap;
  for (const auto& frame : frames_) {
    const double scale = kFrameWidth / cairo_image_surface_get_width(frame.image.get());
    cairo_save(cr);
    cairo_translate(cr, x, kGap);
    cairo_scale(cr, scale, scale);
    cairo_set_source_surface(cr, frame.image.get(), 0, 0);
    cairo_paint(cr);
    cairo_restore(cr);
    cairo_set_source_rgb(cr, 0.9, 0.9, 0.9);
    cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, 16);
    cairo_move_to(cr, x, kGap + frameHeight + 20);
    cairo_show_text(cr, frame.caption.c_str());
    x += kFrameWidth + kGap;
  }
  cairo_destroy(cr);
  return cairo_surface_write_to_png(sheet.get(), file.c_str()) == CAIRO_STATUS_SUCCESS;
}

}  // namespace demo
