#include "ui/View.h"

#include <algorithm>
#include <cmath>

namespace zivora::ui {
namespace {
// Below this a view counts as invisible and lets taps through.
constexpr double kMinimumHitAlpha = 0.01;
}  // namespace

View::View(Rect frame) : frame_(frame) {}

View::~View() {
  for (auto& view : subviews_) view->superview_ = nullptr;
}

void View::setFrame(const Rect& frame) {
  if (frame == frame_) return;
  frame_ = frame;
  if (layer_) layer_->setFrame(bounds());
  layoutSubviews();
  setNeedsDisplay();
}

void View::setLayer(std::unique_ptr<Layer> layer) {
  layer_ = std::move(layer);
  if (layer_) {
    layer_->setFrame(bounds());
    layer_->setDisplayHandler([this] { setNeedsDisplay(); });
  }
  setNeedsDisplay();
}

void View::setHidden(bool hidden) {
  if (hidden == hidden_) return;
  hidden_ = hidden;
  setNeedsDisplay();
}

void View::setAlpha(double alpha) {
  alpha = std::clamp(alpha, 0.0, 1.0);
  if (alpha == alpha_) return;
  alpha_ = alpha;
  setNeedsDisplay();
}

void View::setBackgroundColor(std::optional<Color> color) {
  backgroundColor_ = color;
  setNeedsDisplay();
}

void View::setCornerRadius(double radius) {
  cornerRadius_ = std::max(radius, 0.0);
  setNeedsDisplay();
}

void View::setTranslation(Point translation) {
  if (translation == translation_) return;
  translation_ = translation;
  setNeedsDisplay();
}

void View::addSubview(std::shared_ptr<View> view) {
  if (!view || view.get() == this) return;
  view->removeFromSuperview();
  view->superview_ = this;
  subviews_.push_back(std::move(view));
  setNeedsDisplay();
}

void View::insertSubviewAtBack(std::shared_ptr<View> view) {
  if (!view || view.get() == this) return;
  view->removeFromSuperview();
  view->superview_ = this;
  subviews_.insert(subviews_.begin(), std::move(view));
  setNeedsDisplay();
}

void View::removeFromSuperview() {
  View* parent = superview_;
  if (!parent) return;
  superview_ = nullptr;
  auto& siblings = parent->subviews_;
  // Erasing may drop the last owner of this view; nothing touches it after.
  auto keep = std::find_if(siblings.begin(), siblings.end(),
                           [this](const std::shared_ptr<View>& v) { return v.get() == this; });
  if (keep == siblings.end()) return;
  std::shared_ptr<View> self = *keep;
  siblings.erase(keep);
  parent->setNeedsDisplay();
}

void View::setNeedsDisplay() {
  changed_ = true;
  paintingCache_.reset();
  for (View* view = this; view && !view->needsDisplay_; view = view->superview_) {
    view->needsDisplay_ = true;
  }
}

View* View::hitTest(Point point) {
  if (hidden_ || alpha_ < kMinimumHitAlpha || runningAnimations_ > 0) return nullptr;
  Rect placed = frame_;
  placed.origin.x += translation_.x;
  placed.origin.y += translation_.y;
  if (!placed.contains(point)) return nullptr;
  Point local{point.x - placed.minX(), point.y - placed.minY()};
  for (auto it = subviews_.rbegin(); it != subviews_.rend(); ++it) {
    if (View* hit = (*it)->hitTest(local)) return hit;
  }
  return userInteractionEnabled_ ? this : nullptr;
}

bool View::isReachable() const {
  for (const View* view = this; view; view = view->superview_) {
    if (view->hidden_ || view->alpha_ < kMinimumHitAlpha || view->runningAnimations_ > 0) {
      return false;
    }
  }
  return userInteractionEnabled_;
}

bool View::tap(Point point) {
  View* hit = hitTest(point);
  if (!hit) return false;
  hit->handleTap();
  return true;
}

void View::handleTap() {
  if (tapHandler_) tapHandler_();
}

void View::fillBackground(cairo_t* cr) const {
  const double w = frame_.width(), h = frame_.height();
  const double r = std::min({cornerRadius_, w / 2, h / 2});
  if (r <= 0) {
    cairo_rectangle(cr, 0, 0, w, h);
  } else {
    constexpr double kQuarter = 1.5707963267948966;
    cairo_new_sub_path(cr);
    cairo_arc(cr, w - r, r, r, -kQuarter, 0);
    cairo_arc(cr, w - r, h - r, r, 0, kQuarter);
    cairo_arc(cr, r, h - r, r, kQuarter, 2 * kQuarter);
    cairo_arc(cr, r, r, r, 2 * kQuarter, 3 * kQuarter);
    cairo_close_path(cr);
  }
  cairo_fill(cr);
}

// The bounds, what the view's painting reaches past them, and every visible
// subview's extent.
Rect View::ownExtent() const {
  const double reach = overflow();
  return {{-reach, -reach}, {frame_.width() + 2 * reach, frame_.height() + 2 * reach}};
}

Rect View::drawnExtent() const {
  const Rect own = ownExtent();
  double minX = own.minX(), minY = own.minY();
  double maxX = own.maxX(), maxY = own.maxY();
  for (const auto& view : subviews_) {
    if (view->hidden_) continue;
    const Rect inner = view->drawnExtent();
    const double x = view->frame_.minX() + view->translation_.x;
    const double y = view->frame_.minY() + view->translation_.y;
    minX = std::min(minX, x + inner.minX());
    minY = std::min(minY, y + inner.minY());
    maxX = std::max(maxX, x + inner.maxX());
    maxY = std::max(maxY, y + inner.maxY());
  }
  return {{minX, minY}, {maxX - minX, maxY - minY}};
}

bool View::drawsNothing() const {
  if ((backgroundColor_ && backgroundColor_->alpha > 0) || layer_ || drawsContent()) return false;
  return std::all_of(subviews_.begin(), subviews_.end(), [](const std::shared_ptr<View>& view) {
    return view->hidden_ || view->alpha_ <= 0 || view->drawsNothing();
  });
}

Rect View::opaqueRect() const {
  const bool opaque = backgroundColor_ && backgroundColor_->alpha >= 1 && cornerRadius_ <= 0;
  return opaque ? bounds() : Rect{};
}

cairo_matrix_t View::placed(const cairo_matrix_t& toDevice) const {
  cairo_matrix_t matrix = toDevice;
  cairo_matrix_translate(&matrix, frame_.minX() + translation_.x, frame_.minY() + translation_.y);
  return matrix;
}

void View::settle(const cairo_matrix_t& toDevice, bool drawn) {
  drawn = drawn && isDrawn();
  const cairo_matrix_t matrix = placed(toDevice);
  composedExtent_ = drawn ? PixelRegion::touchedBy(matrix, drawnExtent()) : cairo_rectangle_int_t{};
  needsDisplay_ = false;
  changed_ = false;
  for (auto& view : subviews_) view->settle(matrix, drawn);
}

void View::collectDamage(const cairo_matrix_t& toDevice, PixelRegion& damage) const {
  if (!needsDisplay_) return;
  const cairo_matrix_t matrix = placed(toDevice);
  if (!changed_) {
    for (const auto& view : subviews_) view->collectDamage(matrix, damage);
    return;
  }
  // The old and the new place cover whatever moved or changed inside.
  damage.add(composedExtent_);
  if (isDrawn()) damage.add(PixelRegion::touchedBy(matrix, drawnExtent()));
}

bool View::opaquelyCovers(const cairo_matrix_t& toDevice, const cairo_rectangle_int_t& area) const {
  if (alpha_ < 1 || !isDrawn()) return false;
  const cairo_matrix_t matrix = placed(toDevice);
  if (PixelRegion::encloses(PixelRegion::coveredBy(matrix, opaqueRect()), area)) return true;
  return std::any_of(subviews_.begin(), subviews_.end(), [&](const std::shared_ptr<View>& view) {
    return view->opaquelyCovers(matrix, area);
  });
}

bool View::ownPaintingHidden(const cairo_matrix_t& placedToDevice,
                             const cairo_rectangle_int_t& clip) const {
  const bool background = backgroundColor_ && backgroundColor_->alpha > 0;
  if (!background && !layer_ && !drawsContent()) return true;
  const Rect own = ownExtent();
  const cairo_rectangle_int_t area =
      PixelRegion::intersection(PixelRegion::touchedBy(placedToDevice, own), clip);
  if (PixelRegion::isEmpty(area)) return true;
  return std::any_of(subviews_.begin(), subviews_.end(), [&](const std::shared_ptr<View>& view) {
    return view->opaquelyCovers(placedToDevice, area);
  });
}

void View::paintOwn(cairo_t* cr) {
  if (cachesOwnPainting()) return paintOwnCached(cr);
  cairo_save(cr);
  clipOutOpaqueSubview(cr);
  paintOwnDirectly(cr);
  cairo_restore(cr);
}

void View::paintOwnDirectly(cairo_t* cr) {
  if (backgroundColor_) {
    cairo_set_source_rgba(cr, backgroundColor_->red, backgroundColor_->green,
                          backgroundColor_->blue, backgroundColor_->alpha);
    fillBackground(cr);
  }
  cairo_save(cr);
  if (layer_) layer_->drawInContext(cr);
  draw(cr);
  cairo_restore(cr);
}

void View::paintOwnCached(cairo_t* cr) {
  paintingCache_.paint(cr, ownExtent(), [this](cairo_t* painter) { paintOwnDirectly(painter); });
}

namespace {
// The clip's bounding box in device pixels.
cairo_rectangle_int_t deviceClip(cairo_t* cr) {
  double x0, y0, x1, y1;
  cairo_clip_extents(cr, &x0, &y0, &x1, &y1);
  cairo_matrix_t matrix;
  cairo_get_matrix(cr, &matrix);
  return PixelRegion::touchedBy(matrix, {{x0, y0}, {x1 - x0, y1 - y0}});
}
}  // namespace

void View::render(cairo_t* cr) {
  cairo_matrix_t toDevice;
  cairo_get_matrix(cr, &toDevice);
  // A view with nothing to paint opens no group either: a nearly clear
  // full-screen button would otherwise blend the whole screen every frame.
  if (!isDrawn()) return settle(toDevice, false);
  const cairo_matrix_t matrix = placed(toDevice);
  const cairo_rectangle_int_t clip = deviceClip(cr);
  const Rect extent = drawnExtent();
  composedExtent_ = PixelRegion::touchedBy(matrix, extent);
  if (PixelRegion::isEmpty(PixelRegion::intersection(composedExtent_, clip))) {
    return settle(toDevice, true);
  }
  needsDisplay_ = false;
  changed_ = false;
  cairo_save(cr);
  cairo_translate(cr, frame_.minX() + translation_.x, frame_.minY() + translation_.y);
  const bool translucent = alpha_ < 1;
  if (translucent) {
    // A group is as large as the clip: kept to what this view draws, a
    // small translucent control does not blend the whole screen.
    cairo_rectangle(cr, extent.minX(), extent.minY(), extent.width(), extent.height());
    cairo_clip(cr);
    cairo_push_group(cr);
  }
  if (!ownPaintingHidden(matrix, clip)) paintOwn(cr);
  for (auto& view : subviews_) view->render(cr);
  if (translucent) {
    cairo_pop_group_to_source(cr);
    cairo_paint_with_alpha(cr, alpha_);
  }
  cairo_restore(cr);
}

void View::clipOutOpaqueSubview(cairo_t* cr) const {
  cairo_matrix_t matrix;
  cairo_get_matrix(cr, &matrix);
  cairo_rectangle_int_t largest{0, 0, 0, 0};
  for (const auto& view : subviews_) {
    if (view->alpha_ < 1 || !view->isDrawn()) continue;
    const cairo_rectangle_int_t covered =
        PixelRegion::coveredBy(view->placed(matrix), view->opaqueRect());
    if (!PixelRegion::isEmpty(covered) && static_cast<long>(covered.width) * covered.height >
                                              static_cast<long>(largest.width) * largest.height) {
      largest = covered;
    }
  }
  if (PixelRegion::isEmpty(largest)) return;
  const cairo_rectangle_int_t clip = deviceClip(cr);
  // Whole-pixel edges keep the clip exact (no antialiased seam).
  cairo_identity_matrix(cr);
  cairo_rectangle(cr, clip.x, clip.y, clip.width, clip.height);
  cairo_rectangle(cr, largest.x, largest.y, largest.width, largest.height);
  cairo_set_fill_rule(cr, CAIRO_FILL_RULE_EVEN_ODD);
  cairo_clip(cr);
  cairo_set_fill_rule(cr, CAIRO_FILL_RULE_WINDING);
  cairo_set_matrix(cr, &matrix);
}

}  // namespace zivora::ui
