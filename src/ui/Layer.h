#pragma once

#include <cairo.h>

#include <functional>

#include "ui/Geometry.h"

namespace zivora::ui {

// Custom drawing that backs a view: the view keeps the layer's frame equal
// to its bounds and draws it under its subviews.
class Layer {
 public:
  virtual ~Layer() = default;

  const Rect& frame() const { return frame_; }
  void setFrame(const Rect& frame) { frame_ = frame; }
  // Draws in the layer's own coordinates (origin at its frame's origin).
  virtual void drawInContext(cairo_t* cr) = 0;

  // The owning view's redraw, set by the view.
  void setDisplayHandler(std::function<void()> handler) { displayHandler_ = std::move(handler); }
  void setNeedsDisplay() const {
    if (displayHandler_) displayHandler_();
  }

 private:
  Rect frame_;
  std::function<void()> displayHandler_;
};

}  // namespace zivora::ui
