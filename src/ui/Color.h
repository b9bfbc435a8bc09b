#pragma once

namespace zivora::ui {

// Red, green, blue and alpha in 0...1, not premultiplied.
struct Color {
  double red = 0;
  double green = 0;
  double blue = 0;
  double alpha = 1;

  static constexpr Color black() { return {0, 0, 0, 1}; }
  static constexpr Color white() { return {1, 1, 1, 1}; }
  static constexpr Color clear() { return {0, 0, 0, 0}; }
};

inline bool operator==(const Color& a, const Color& b) {
  return a.red == b.red && a.green == b.green && a.blue == b.blue && a.alpha == b.alpha;
}

}  // namespace zivora::ui
