#include "ui/ZVPlayerView.h"

#include <algorithm>
#include <cstring>

namespace zivora::ui {

ZVPlayerView::ZVPlayerView(Rect frame) : View(frame) { setUserInteractionEnabled(false); }

ZVPlayerView::~ZVPlayerView() {
  if (player_) player_->setFrameSink(nullptr);
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

void ZVPlayerView::videoFrame(const media::VideoFrame& frame) {
  if (!isUsable(frame)) return;
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
  // cairo takes rows of whole 32-bit words only.
  if (frame.stride % 4 != 0) return videoFrame(frame);
  if (!isUsable(frame)) return;
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

void ZVPlayerView::draw(cairo_t* cr) {
  if (width_ <= 0 || height_ <= 0) return;
  // Video is opaque: as RGB24 the picture is copied, not blended.
  cairo_surface_t* picture = cairo_image_surface_create_for_data(pixels_.data(), CAIRO_FORMAT_RGB24,
                                                                 width_, height_, stride_);
  const Rect placed = pictureRect();
  cairo_translate(cr, placed.minX(), placed.minY());
  cairo_scale(cr, placed.width() / width_, placed.height() / height_);
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
