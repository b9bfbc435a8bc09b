#include "ui/ImageView.h"

#include <cstdint>
#include <cstring>
#include <string>

#include "platform/ImageDecoder.h"
#include "util/ZVLog.h"

namespace zivora::ui {
namespace {

// The decoder gives straight ARGB; cairo wants premultiplied native-endian
// ARGB.
cairo_surface_t* toCairo(const platform::DecodedImage& decoded) {
  cairo_surface_t* surface =
      cairo_image_surface_create(CAIRO_FORMAT_ARGB32, decoded.width, decoded.height);
  if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(surface);
    return nullptr;
  }
  cairo_surface_flush(surface);
  unsigned char* out = cairo_image_surface_get_data(surface);
  const int outStride = cairo_image_surface_get_stride(surface);
  for (int y = 0; y < decoded.height; ++y) {
    const std::uint32_t* in = decoded.pixels.data() +
                              static_cast<std::size_t>(y) * static_cast<std::size_t>(decoded.width);
    auto* row = reinterpret_cast<std::uint32_t*>(out + y * outStride);
    for (int x = 0; x < decoded.width; ++x) {
      const std::uint32_t p = in[x];
      const std::uint32_t a = p >> 24;
      auto premultiply = [a](std::uint32_t c) { return (c * a + 127) / 255; };
      row[x] = (a << 24) | (premultiply((p >> 16) & 0xff) << 16) |
               (premultiply((p >> 8) & 0xff) << 8) | premultiply(p & 0xff);
    }
  }
  cairo_surface_mark_dirty(surface);
  return surface;
}

}  // namespace

ImageView::ImageView(Rect frame) : View(frame) { setUserInteractionEnabled(false); }

bool ImageView::setImageFile(const std::filesystem::path& path) {
  image_.reset();
  setNeedsDisplay();
  std::string why;
  std::optional<platform::DecodedImage> decoded = platform::ImageDecoder::decode(path, why);
  if (!decoded) {
    ZVLog::LogWarning("[ImageView][setImageFile] Can't load image {}: {}", path.string(), why);
    return false;
  }
  image_.reset(toCairo(*decoded));
  return image_ != nullptr;
}

Size ImageView::imageSize() const {
  if (!image_) return {};
  return {static_cast<double>(cairo_image_surface_get_width(image_.get())),
          static_cast<double>(cairo_image_surface_get_height(image_.get()))};
}

void ImageView::draw(cairo_t* cr) {
  const Size image = imageSize();
  const Size box = bounds().size;
  if (image.width <= 0 || image.height <= 0 || box.width <= 0 || box.height <= 0) return;
  const double scale = std::min(box.width / image.width, box.height / image.height);
  cairo_translate(cr, (box.width - image.width * scale) / 2,
                  (box.height - image.height * scale) / 2);
  cairo_scale(cr, scale, scale);
  cairo_set_source_surface(cr, image_.get(), 0, 0);
  cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
  // Edge pixels repeat instead of fading into the border when scaled.
  cairo_pattern_set_extend(cairo_get_source(cr), CAIRO_EXTEND_PAD);
  cairo_rectangle(cr, 0, 0, image.width, image.height);
  cairo_fill(cr);
}

}  // namespace zivora::ui
