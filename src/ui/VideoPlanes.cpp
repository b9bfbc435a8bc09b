#include "ui/VideoPlanes.h"

#include <algorithm>

#include "ui/PixelRegion.h"

namespace zivora::ui {
namespace {
const cairo_user_data_key_t kPlanesKey{};

cairo_rectangle_int_t touchedPixels(const Rect& r) {
  cairo_matrix_t identity;
  cairo_matrix_init_identity(&identity);
  return PixelRegion::touchedBy(identity, r);
}
}  // namespace

VideoPlanes* VideoPlanes::on(cairo_surface_t* surface) {
  return static_cast<VideoPlanes*>(cairo_surface_get_user_data(surface, &kPlanesKey));
}

void VideoPlanes::attach(Canvas& canvas) { canvas.setUserData(&kPlanesKey, this); }

void VideoPlanes::show(const void* owner, std::shared_ptr<const media::YuvPicture> picture,
                       Rect pixels) {
  auto found = std::find_if(planes_.begin(), planes_.end(),
                            [&](const Plane& p) { return p.owner == owner; });
  if (found == planes_.end()) {
    Plane plane;
    plane.owner = owner;
    found = planes_.insert(planes_.end(), plane);
  }
  const bool moved = !(found->pixels == pixels);
  found->fresh = found->fresh || found->picture != picture;
  found->picture = std::move(picture);
  found->pixels = pixels;
  found->confirmed = true;
  changed_ = changed_ || found->fresh || moved;
}

bool VideoPlanes::update(const void* owner, std::shared_ptr<const media::YuvPicture> picture) {
  auto found = std::find_if(planes_.begin(), planes_.end(),
                            [&](const Plane& p) { return p.owner == owner; });
  if (found == planes_.end() || !picture || !found->picture ||
      picture->width() != found->picture->width() ||
      picture->height() != found->picture->height()) {
    return false;
  }
  found->picture = std::move(picture);
  found->fresh = true;
  changed_ = true;
  return true;
}

void VideoPlanes::remove(const void* owner) {
  if (std::erase_if(planes_, [&](const Plane& p) { return p.owner == owner; }) > 0) changed_ = true;
}

void VideoPlanes::beginComposition(const cairo_rectangle_int_t& damage) {
  for (Plane& plane : planes_) {
    const auto area = PixelRegion::intersection(touchedPixels(plane.pixels), damage);
    plane.confirmed = PixelRegion::isEmpty(area);
  }
}

void VideoPlanes::endComposition() {
  const auto before = planes_.size();
  std::erase_if(planes_, [](const Plane& p) { return !p.confirmed; });
  changed_ = changed_ || planes_.size() != before;
}

void VideoPlanes::takeChanges() {
  for (Plane& plane : planes_) plane.fresh = false;
  changed_ = false;
}

}  // namespace zivora::ui
