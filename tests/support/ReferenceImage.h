#pragma once

#include <gtest/gtest.h>

#include <string>

namespace zivora::ui {
class Canvas;
}

namespace zivora::test {

// Compares what a canvas holds with tests/ui/reference/<name>.png. Every
// rendering is also written to the build's rendered/ folder for review; with
// ZIVORA_UPDATE_REFERENCES=1 in the environment the reference is replaced.
// Anti-aliasing may differ slightly between cairo and pixman builds, so a
// pixel counts as different only past a small per-channel tolerance, and a
// few such pixels are allowed.
::testing::AssertionResult matchesReference(const ui::Canvas& canvas, const std::string& name);

// Compares two canvases of one size pixel for pixel, with no tolerance.
::testing::AssertionResult samePixels(const ui::Canvas& got, const ui::Canvas& want);

}  // namespace zivora::test
