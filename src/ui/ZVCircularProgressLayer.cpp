#include "ui/ZVCircularProgressLayer.h"

#include <cmath>
#include <numbers>

#include "util/Guard.h"

namespace zivora::ui {
namespace {

constexpr double kMargin = 0.5;

struct Arc {
  double radius;
  int endDegrees;
  double lineWidth;
  double red, green, blue, alpha;
};

void stroke(cairo_t* cr, Point centre, const Arc& arc) {
  cairo_new_path(cr);
  cairo_arc(cr, centre.x, centre.y, arc.radius, ZVCircularProgressLayer::degreeToRadiansFromTop(0),
            ZVCircularProgressLayer::degreeToRadiansFromTop(arc.endDegrees));
  cairo_set_line_width(cr, arc.lineWidth);
  cairo_set_line_cap(cr, CAIRO_LINE_CAP_SQUARE);
  cairo_set_source_rgba(cr, arc.red, arc.green, arc.blue, arc.alpha);
  cairo_stroke(cr);
}

}  // namespace

void ZVCircularProgressLayer::setProgress(float progress) {
  guarded("ZVCircularProgressLayer", "setProgress", [&] {
    progress_ = progress;
    setNeedsDisplay();
  });
}

double ZVCircularProgressLayer::degreeToRadiansFromTop(int degrees) {
  return (degrees - 90) * std::numbers::pi / 180;
}

// In 32-bit floats, as the progress is declared.
int ZVCircularProgressLayer::progressEndDegrees(float progress) {
  const float degrees = progress * 360.0f;
  if (!std::isfinite(degrees) || degrees >= 360) return 360;
  if (degrees <= 0) return 0;
  return static_cast<int>(degrees);
}

void ZVCircularProgressLayer::drawInContext(cairo_t* cr) {
  guarded("ZVCircularProgressLayer", "drawInContext", [&] { drawRing(cr); });
}

void ZVCircularProgressLayer::strokeRims(cairo_t* cr) const {
  const double d = frame().size.shorterSide();
  const Point centre{frame().width() / 2, frame().height() / 2};
  const double thin = d / 70;
  const double thick = 7 * d / 79;
  stroke(cr, centre, {d / 2 - thin / 2 - kMargin, 360, thin, 0, 0, 0, 1});
  stroke(cr, centre, {d / 2 - 1.5 * thin - thick - kMargin, 360, thin, 0, 0, 0, 1});
  stroke(cr, centre, {d / 2 - thin - thick / 2 - kMargin, 360, thick, 0.5, 0.5, 0.5, 0.5});
}

void ZVCircularProgressLayer::drawRing(cairo_t* cr) const {
  // The strokes stay inside the ring's bounds.
  rims_.paint(cr, {{0, 0}, frame().size}, [this](cairo_t* painter) { strokeRims(painter); });
  const double d = frame().size.shorterSide();
  const Point centre{frame().width() / 2, frame().height() / 2};
  const double thin = d / 70;
  const double thick = 7 * d / 79;
  const double bandRadius = d / 2 - thin - thick / 2 - kMargin;
  stroke(cr, centre, {bandRadius, progressEndDegrees(progress_), thick, 0.93, 0.93, 0.93, 1});
}

}  // namespace zivora::ui
