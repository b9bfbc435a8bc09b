#pragma once

#include <memory>

#include "ui/GridPixels.h"
#include "ui/Layer.h"

namespace zivora::ui {

// The ring of the countdown and skip controls: a translucent grey band
// between two thin black rims, filled clockwise from twelve o'clock by a
// near-white arc. Everything scales with the shorter side of the frame.
class ZVCircularProgressLayer : public Layer {
 public:
  float progress() const { return progress_; }
  // Stores the value and asks for a redraw.
  void setProgress(float progress);

  void drawInContext(cairo_t* cr) override;

  // Integer degrees to radians with 0 at twelve o'clock.
  static double degreeToRadiansFromTop(int degrees);
  // The progress arc's end: the progress as whole degrees, truncated. A
  // progress that is not a finite number (a zero or NaN duration) saturates
  // at the full circle, as does anything past it.
  static int progressEndDegrees(float progress);

 protected:
  void drawRing(cairo_t* cr) const;

 private:
  // The rims and the grey band do not change with the progress: they are
  // kept as pixels and copied under the arc, which is all that a tick
  // strokes anew.
  void strokeRims(cairo_t* cr) const;

  float progress_ = 0;
  mutable GridPixels rims_;
};

}  // namespace zivora::ui
