#include "ui/ZVPlayerView.h"

#include <algorithm>

namespace zivora::ui {

ZVPlayerView::ZVPlayerView(Rect frame) : View(frame) { setUserInteractionEnabled(false); }

void ZVPlayerView::setPlayer(std::shared_ptr<platform::MediaPlayer> player) {
  player_ = std::move(player);
  if (!player_) return;
  std::weak_ptr<View> weak = weak_from_this();
  player_->setFrameSink([weak](const platform::VideoFrame& frame) {
    auto self = std::static_pointer_cast<ZVPlayerView>(weak.lock());
    if (!self) return;
    self->frame_ = frame;
    self->setNeedsDisplay();
  });
}

void ZVPlayerView::draw(cairo_t* cr) {
  if (!frame_.pixels || frame_.width <= 0 || frame_.height <= 0) return;
  const std::size_t needed = static_cast<std::size_t>(frame_.stride) * frame_.height;
  if (frame_.stride < frame_.width * 4 || frame_.pixels->size() < needed) return;
  // cairo only reads the pixels while painting; the frame outlives the call.
  auto* data = const_cast<unsigned char*>(frame_.pixels->data());
  cairo_surface_t* picture = cairo_image_surface_create_for_data(
      data, CAIRO_FORMAT_ARGB32, frame_.width, frame_.height, frame_.stride);
  const Size box = bounds().size;
  const double scale = std::min(box.width / frame_.width, box.height / frame_.height);
  cairo_translate(cr, (box.width - frame_.width * scale) / 2,
                  (box.height - frame_.height * scale) / 2);
  cairo_scale(cr, scale, scale);
  cairo_set_source_surface(cr, picture, 0, 0);
  // Edge pixels repeat instead of fading into the border when scaled.
  cairo_pattern_set_extend(cairo_get_source(cr), CAIRO_EXTEND_PAD);
  cairo_rectangle(cr, 0, 0, frame_.width, frame_.height);
  cairo_fill(cr);
  cairo_surface_destroy(picture);
}

}  // namespace zivora::ui
