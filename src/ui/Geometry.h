#pragma once

#include <algorithm>

namespace zivora::ui {

// Lengths are in points; a surface's scale turns them into pixels.
struct Point {
  double x = 0;
  double y = 0;
};

struct Size {
  double width = 0;
  double height = 0;

  double shorterSide() const { return std::min(width, height); }
};

struct Rect {
  Point origin;
  Size size;

  double minX() const { return origin.x; }
  double minY() const { return origin.y; }
  double maxX() const { return origin.x + size.width; }
  double maxY() const { return origin.y + size.height; }
  double width() const { return size.width; }
  double height() const { return size.height; }
  // Half-open, so two adjacent views never both claim a tap on their border.
  bool contains(Point p) const {
    return p.x >= minX() && p.x < maxX() && p.y >= minY() && p.y < maxY();
  }
};

inline bool operator==(Point a, Point b) { return a.x == b.x && a.y == b.y; }
inline bool operator==(Size a, Size b) { return a.width == b.width && a.height == b.height; }
inline bool operator==(const Rect& a, const Rect& b) {
  return a.origin == b.origin && a.size == b.size;
}

}  // namespace zivora::ui
