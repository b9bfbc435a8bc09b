#include "ui/ZVPlayerView.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace zivora::ui {

ZVPlayerView::ZVPlayerView(Rect frame) : View(frame) { setUserInteractionEnabled(false); }

ZVPlayerView::~ZVPlayerView() {
  if (player_) player_->setFrameSink(nullptr);
  if (auto planes = planes_.lock()) planes->remove(this);
}

void ZVPlayerView::setPlayer(std::shared_ptr<media::MediaPlayer> player) {
  if (player_ && player_ != player) player_->setFrameSink(nullptr);
  player_ = std::move(player);
  if (player_) player_->setFrameSink(this);
}

bool ZVPlayerView::isUsable(const media::VideoFrame& frame) {
  return frame.width > 0 && frame.height > 0 && frame.stride >= frame.width * 4 &&
         frame.pixels.size() >= static_cast<std::size_t>(frame.stride) * frame.height;
}

void ZVPlayerView::showYuv(std::shared_ptr<const media::YuvPicture> picture) {
  if (picture->width() <= 0 || picture->height() <= 0) return;
  // Shown beneath the canvas: nothing in the canvas changes.
  if (auto planes = planes_.lock(); planes && planes->update(this, picture)) {
    yuv_ = std::move(picture);
    pixelsStale_ = true;
    return;
  }
  width_ = picture->width();
  height_ = picture->height();
  yuv_ = std::move(picture);
  pixelsStale_ = true;
  setNeedsDisplay();
}

void ZVPlayerView::videoFrame(const media::VideoFrame& frame) {
  if (frame.yuv) return showYuv(frame.yuv);
  if (!isUsable(frame)) return;
  yuv_.reset();
  width_ = frame.width;
  height_ = frame.height;
  stride_ = width_ * 4;
  // Only the row padding goes.
  const auto row = static_cast<std::size_t>(stride_);
  pixels_.resize(row * static_cast<std::size_t>(height_));
  for (int y = 0; y < height_; ++y) {
    std::memcpy(pixels_.data() + row * static_cast<std::size_t>(y),
                frame.pixels.data() + static_cast<std::size_t>(frame.stride) * y, row);
  }
  setNeedsDisplay();
}

void ZVPlayerView::takeFrame(media::VideoFrame& frame) {
  if (frame.yuv) return showYuv(std::move(frame.yuv));
  // cairo takes rows of whole 32-bit words only.
  if (frame.stride % 4 != 0) return videoFrame(frame);
  if (!isUsable(frame)) return;
  yuv_.reset();
  width_ = frame.width;
  height_ = frame.height;
  stride_ = frame.stride;
  pixels_.swap(frame.pixels);
  setNeedsDisplay();
}

Rect ZVPlayerView::pictureRect() const {
  if (width_ <= 0 || height_ <= 0) return {};
  const Size box = bounds().size;
  const double scale = std::min(box.width / width_, box.height / height_);
  const Size fitted{width_ * scale, height_ * scale};
  return {{(box.width - fitted.width) / 2, (box.height - fitted.height) / 2}, fitted};
}

Rect ZVPlayerView::opaqueRect() const {
  const Rect background = View::opaqueRect();
  return background.width() > 0 ? background : pictureRect();
}

std::optional<Point> ZVPlayerView::unscaledCorner(cairo_t* cr) const {
  cairo_matrix_t matrix;
  cairo_get_matrix(cr, &matrix);
  const Rect placed = pictureRect();
  if (matrix.xy != 0 || matrix.yx != 0 || matrix.xx * placed.width() != width_ ||
      matrix.yy * placed.height() != height_) {
    return std::nullopt;
  }
  return Point{std::round(matrix.x0 + matrix.xx * placed.minX()),
               std::round(matrix.y0 + matrix.yy * placed.minY())};
}

bool ZVPlayerView::drawAsPlane(cairo_t* cr) {
  VideoPlanes* planes = VideoPlanes::on(cairo_get_group_target(cr));
  if (!planes) return false;
  cairo_matrix_t matrix;
  cairo_get_matrix(cr, &matrix);
  if (matrix.xy != 0 || matrix.yx != 0 || matrix.xx <= 0 || matrix.yy <= 0) return false;
  Rect pixels;
  if (const auto corner = unscaledCorner(cr)) {
    pixels = {*corner, {double(width_), double(height_)}};
  } else {
    const Rect placed = pictureRect();
    pixels = {{matrix.x0 + matrix.xx * placed.minX(), matrix.y0 + matrix.yy * placed.minY()},
              {matrix.xx * placed.width(), matrix.yy * placed.height()}};
  }
  cairo_save(cr);
  cairo_identity_matrix(cr);
  cairo_rectangle(cr, pixels.minX(), pixels.minY(), pixels.width(), pixels.height());
  cairo_set_operator(cr, CAIRO_OPERATOR_CLEAR);
  cairo_fill(cr);
  cairo_restore(cr);
  planes->show(this, yuv_, pixels);
  planes_ = planes->weak_from_this();
  return true;
}

bool ZVPlayerView::drawYuvInPlace(cairo_t* cr) const {
  cairo_surface_t* target = cairo_get_group_target(cr);
  if (cairo_surface_get_type(target) != CAIRO_SURFACE_TYPE_IMAGE) return false;
  const cairo_format_t format = cairo_image_surface_get_format(target);
  if (format != CAIRO_FORMAT_ARGB32 && format != CAIRO_FORMAT_RGB24) return false;
  double offsetX = 0, offsetY = 0;
  cairo_surface_get_device_offset(target, &offsetX, &offsetY);
  if (offsetX != 0 || offsetY != 0) return false;
  const auto corner = unscaledCorner(cr);
  if (!corner) return false;
  cairo_matrix_t matrix;
  cairo_get_matrix(cr, &matrix);

  // The clip in device pixels, each rectangle met by the picture.
  cairo_rectangle_list_t* clip = cairo_copy_clip_rectangle_list(cr);
  std::vector<cairo_rectangle_int_t> areas;
  bool wholePixels = clip->status == CAIRO_STATUS_SUCCESS;
  const cairo_rectangle_int_t picture{static_cast<int>(corner->x), static_cast<int>(corner->y),
                                      width_, height_};
  const cairo_rectangle_int_t surface{0, 0, cairo_image_surface_get_width(target),
                                      cairo_image_surface_get_height(target)};
  for (int i = 0; wholePixels && i < clip->num_rectangles; ++i) {
    const cairo_rectangle_t& r = clip->rectangles[i];
    const double x = matrix.x0 + matrix.xx * r.x, y = matrix.y0 + matrix.yy * r.y;
    const double w = matrix.xx * r.width, h = matrix.yy * r.height;
    // A clip edge between pixels is antialiased: cairo's own path does that.
    wholePixels =
        x == std::floor(x) && y == std::floor(y) && w == std::floor(w) && h == std::floor(h);
    const cairo_rectangle_int_t area = PixelRegion::intersection(
        PixelRegion::intersection(
            {static_cast<int>(x), static_cast<int>(y), static_cast<int>(w), static_cast<int>(h)},
            picture),
        surface);
    if (!PixelRegion::isEmpty(area)) areas.push_back(area);
  }
  cairo_rectangle_list_destroy(clip);
  if (!wholePixels) return false;

  cairo_surface_flush(target);
  unsigned char* pixels = cairo_image_surface_get_data(target);
  const int stride = cairo_image_surface_get_stride(target);
  for (const auto& area : areas) {
    yuv_->convert(area.x - picture.x, area.y - picture.y, area.width, area.height,
                  pixels + static_cast<std::ptrdiff_t>(area.y) * stride + area.x * 4, stride);
    cairo_surface_mark_dirty_rectangle(target, area.x, area.y, area.width, area.height);
  }
  return true;
}

void ZVPlayerView::draw(cairo_t* cr) {
  if (width_ <= 0 || height_ <= 0) return;
  if (yuv_ && drawAsPlane(cr)) return;
  if (yuv_ && drawYuvInPlace(cr)) return;
  if (yuv_ && pixelsStale_) {
    stride_ = width_ * 4;
    pixels_.resize(static_cast<std::size_t>(stride_) * static_cast<std::size_t>(height_));
    yuv_->convert(pixels_.data(), stride_);
    pixelsStale_ = false;
  }
  // Video is opaque: as RGB24 the picture is copied, not blended.
  cairo_surface_t* picture = cairo_image_surface_create_for_data(pixels_.data(), CAIRO_FORMAT_RGB24,
                                                                 width_, height_, stride_);
  if (const auto corner = unscaledCorner(cr)) {
    cairo_identity_matrix(cr);
    cairo_translate(cr, corner->x, corner->y);
  } else {
    const Rect placed = pictureRect();
    cairo_translate(cr, placed.minX(), placed.minY());
    cairo_scale(cr, placed.width() / width_, placed.height() / height_);
  }
  cairo_set_source_surface(cr, picture, 0, 0);
  // Edge pixels repeat instead of fading into the border when scaled.
  // Unscaled at a whole-pixel offset, pixman copies the picture as fast as
  // a plain memcpy of its rows would.
  cairo_pattern_set_extend(cairo_get_source(cr), CAIRO_EXTEND_PAD);
  cairo_rectangle(cr, 0, 0, width_, height_);
  cairo_fill(cr);
  cairo_surface_destroy(picture);
}

}  // namespace zivora::ui
