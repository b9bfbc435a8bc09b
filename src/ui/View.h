#pragma once

#include <cairo.h>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "ui/Color.h"
#include "ui/Geometry.h"
#include "ui/GridPixels.h"
#include "ui/Layer.h"
#include "ui/PixelRegion.h"

namespace zivora::ui {

// The smallest view tree the ad screens need: a frame in the superview's
// points, hidden and alpha, a background, subviews drawn in order (later
// ones on top), tap hit-testing, and a redraw flag that rises to the root
// so a presenter redraws only when something changed. Each view remembers
// where on the canvas it was last drawn, so that only the pixels a change
// touches need drawing again.
class View : public std::enable_shared_from_this<View> {
 public:
  explicit View(Rect frame = {});
  virtual ~View();
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  const Rect& frame() const { return frame_; }
  void setFrame(const Rect& frame);
  Rect bounds() const { return {{0, 0}, frame_.size}; }
  // What drawing the view and its visible subviews may cover, in its own
  // coordinates.
  Rect drawnExtent() const;

  bool isHidden() const { return hidden_; }
  void setHidden(bool hidden);
  double alpha() const { return alpha_; }
  void setAlpha(double alpha);
  const std::optional<Color>& backgroundColor() const { return backgroundColor_; }
  void setBackgroundColor(std::optional<Color> color);
  // Rounds the background's corners.
  void setCornerRadius(double radius);
  // Applied on top of the frame when drawing and hit-testing (a slide-out).
  Point translation() const { return translation_; }
  void setTranslation(Point translation);

  void addSubview(std::shared_ptr<View> view);
  // Adds the view below every other subview, or moves it there.
  void insertSubviewAtBack(std::shared_ptr<View> view);
  void removeFromSuperview();
  const std::vector<std::shared_ptr<View>>& subviews() const { return subviews_; }
  View* superview() const { return superview_; }

  // Taps: the view's handler runs when the view is the deepest one under
  // the tap that takes taps.
  bool isUserInteractionEnabled() const { return userInteractionEnabled_; }
  void setUserInteractionEnabled(bool enabled) { userInteractionEnabled_ = enabled; }
  void setTapHandler(std::function<void()> handler) { tapHandler_ = std::move(handler); }
  // The deepest view under `point` (in this view's superview's coordinates)
  // that is visible and takes taps. Views hidden or with alpha below 0.01
  // are skipped, subviews included.
  View* hitTest(Point point);
  // Visible and taking taps along the whole chain up to the root: what a
  // tap needs to reach the view.
  bool isReachable() const;
  // Delivers a tap at `point` (superview coordinates); false when no view
  // took it.
  bool tap(Point point);
  // What a tap on this view does, for the key and controller bindings.
  void activate() { handleTap(); }

  // Counted by the animator: a view being animated ignores taps.
  void beginAnimation() { ++runningAnimations_; }
  void endAnimation() {
    if (runningAnimations_ > 0) --runningAnimations_;
  }

  // Computes the subviews' frames from this view's bounds.
  virtual void layoutSubviews() {}

  // The custom drawing backing the view, framed to its bounds.
  Layer* layer() const { return layer_.get(); }
  void setLayer(std::unique_ptr<Layer> layer);

  bool needsDisplay() const { return needsDisplay_; }
  void setNeedsDisplay();

  // Draws the view and its subviews with the context's origin at the
  // superview's origin, then clears the redraw flags. Only what meets the
  // context's clip is drawn, and a view's own painting is left out where
  // an opaque subview will cover it.
  void render(cairo_t* cr);

  // The canvas pixels that changed since the last render: where each
  // changed view was drawn then and where it lies now. `toDevice` maps the
  // superview's points to the canvas' pixels.
  void collectDamage(const cairo_matrix_t& toDevice, PixelRegion& damage) const;
  // Whether the subtree, drawn, leaves every pixel of `area` opaque.
  bool opaquelyCovers(const cairo_matrix_t& toDevice, const cairo_rectangle_int_t& area) const;
  // Notes where the subtree lies now and clears its redraw flags without
  // drawing: for changes that reach no pixel of the canvas.
  void settle(const cairo_matrix_t& toDevice) { settle(toDevice, true); }

 protected:
  // Draws the view's own content in its bounds, above the background.
  virtual void draw(cairo_t* /*cr*/) {}
  // Whether draw() would paint anything now; views that override draw()
  // say so, and a view tree that paints nothing is skipped whole.
  virtual bool drawsContent() const { return false; }
  // The part of the bounds the view's own painting leaves opaque.
  virtual Rect opaqueRect() const;
  // How far the view's own painting may reach past its bounds (text
  // outlines); backgrounds, images and layers stay inside.
  virtual double overflow() const { return 0; }
  // Whether the view's own painting is kept as pixels between changes:
  // worth it for paths and text (rings, labels) that cost more to draw
  // than to copy, while a new video picture redraws what lies above it.
  virtual bool cachesOwnPainting() const { return layer_ != nullptr; }
  virtual void handleTap();

 private:
  void fillBackground(cairo_t* cr) const;
  // Nothing in the subtree would reach the canvas: no visible background,
  // layer or content (a clear button that only catches taps).
  bool drawsNothing() const;
  // The bounds and what the view's own painting reaches past them.
  Rect ownExtent() const;
  bool isDrawn() const { return !hidden_ && alpha_ > 0 && !drawsNothing(); }
  // Maps this view's points to the device, given the superview's mapping.
  cairo_matrix_t placed(const cairo_matrix_t& toDevice) const;
  void settle(const cairo_matrix_t& toDevice, bool drawn);
  // Whether the view's own background and content cannot show within
  // `clip`: covered there by an opaque subview, or outside it.
  bool ownPaintingHidden(const cairo_matrix_t& placedToDevice,
                         const cairo_rectangle_int_t& clip) const;
  void paintOwn(cairo_t* cr);
  // Clips out the largest area an opaque subview covers in whole pixels:
  // what the view paints there would only be painted over.
  void clipOutOpaqueSubview(cairo_t* cr) const;
  void paintOwnDirectly(cairo_t* cr);
  // Draws the own painting from its cached pixels, making them first when
  // the view changed or lies differently on the pixel grid.
  void paintOwnCached(cairo_t* cr);

  Rect frame_;
  bool hidden_ = false;
  double alpha_ = 1;
  std::optional<Color> backgroundColor_;
  double cornerRadius_ = 0;
  Point translation_;
  bool userInteractionEnabled_ = true;
  bool needsDisplay_ = true;
  // This view itself changed (not only something inside it).
  bool changed_ = true;
  // The pixels the subtree reached when last drawn; empty when not drawn.
  cairo_rectangle_int_t composedExtent_{0, 0, 0, 0};
  // Whole-pixel moves keep the pixels; anything else draws them anew.
  GridPixels paintingCache_;
  int runningAnimations_ = 0;
  std::function<void()> tapHandler_;
  std::unique_ptr<Layer> layer_;
  View* superview_ = nullptr;
  std::vector<std::shared_ptr<View>> subviews_;
};

}  // namespace zivora::ui
