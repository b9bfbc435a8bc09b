#pragma once

#include <cairo.h>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "ui/Color.h"
#include "ui/Geometry.h"
#include "ui/Layer.h"

namespace zivora::ui {

// The smallest view tree the ad screens need: a frame in the superview's
// points, hidden and alpha, a background, subviews drawn in order (later
// ones on top), tap hit-testing, and a redraw flag that rises to the root
// so a presenter redraws only when something changed.
class View : public std::enable_shared_from_this<View> {
 public:
  explicit View(Rect frame = {});
  virtual ~View();
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  const Rect& frame() const { return frame_; }
  void setFrame(const Rect& frame);
  Rect bounds() const { return {{0, 0}, frame_.size}; }
  // What drawing the view may cover, in its own coordinates.
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
  // superview's origin, then clears the redraw flags.
  void render(cairo_t* cr);

 protected:
  // Draws the view's own content in its bounds, above the background.
  virtual void draw(cairo_t* /*cr*/) {}
  // Whether draw() would paint anything now; views that override draw()
  // say so, and a view tree that paints nothing is skipped whole.
  virtual bool drawsContent() const { return false; }
  virtual void handleTap();

 private:
  // Clears the flags of a subtree that is not drawn, so that a later change
  // inside it still reaches the root.
  void clearNeedsDisplay();
  void fillBackground(cairo_t* cr) const;
  // Nothing in the subtree would reach the canvas: no visible background,
  // layer or content (a clear button that only catches taps).
  bool drawsNothing() const;

  Rect frame_;
  bool hidden_ = false;
  double alpha_ = 1;
  std::optional<Color> backgroundColor_;
  double cornerRadius_ = 0;
  Point translation_;
  bool userInteractionEnabled_ = true;
  bool needsDisplay_ = true;
  int runningAnimations_ = 0;
  std::function<void()> tapHandler_;
  std::unique_ptr<Layer> layer_;
  View* superview_ = nullptr;
  std::vector<std::shared_ptr<View>> subviews_;
};

}  // namespace zivora::ui
