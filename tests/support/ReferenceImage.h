#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace zivora::ui {
class Canvas;
class View;
}  // namespace zivora::ui

namespace zivora::test {

// Compares what a canvas holds with tests/ui/reference/<name>.png. Every
// rendering is also written to the build's rendered/ folder for review; with
// ZIVORA_UPDATE_REFERENCES=1 in the environment the reference is replaced.
// Anti-aliasing may differ slightly between cairo and pixman builds, so a
// pixel counts as different only past a small per-channel tolerance, and a
// few such pixels are allowed.
::testing::AssertionResult matchesReference(const ui::Canvas& canvas, const std::string& name);
// A part of a picture, in pixels.
struct PixelRect {
  int x = 0, y = 0, width = 0, height = 0;
  bool contains(int px, int py) const {
    return px >= x && px < x + width && py >= y && py < y + height;
  }
};

// The same for a picture of 0x00RRGGBB pixels, row by row (a screenshot);
// pixels in `ignored` (a part that moves by itself, such as noise in a
// video) are not compared.
::testing::AssertionResult matchesReference(int width, int height,
                                            const std::vector<std::uint32_t>& rgb,
                                            const std::string& name, PixelRect ignored = {});

// Compares two canvases of one size pixel for pixel, with no tolerance.
::testing::AssertionResult samePixels(const ui::Canvas& got, const ui::Canvas& want);

// Redraws on `canvas` only the damage that changes to `root` left since it
// last drew, as a presenter's frame does.
void composeChanges(ui::Canvas& canvas, ui::View& root);

// Compares `canvas` with `root` drawn afresh at the same size and scale.
::testing::AssertionResult drawnAfresh(const ui::Canvas& canvas, ui::View& root);

}  // namespace zivora::test
