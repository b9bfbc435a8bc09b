#pragma once

#include <cstdint>
#include <memory>

namespace zivora::media {

// How a picture's YUV values map to RGB.
enum class YuvMatrix { Bt601, Bt709, Bt2020 };

// A decoded picture still in the decoder's planar 4:2:0 layout: a luma
// plane of the picture's size and two chroma planes of half its width and
// height. Whoever shows it converts only the pixels it draws, straight into
// its target, instead of converting the whole picture into a buffer of its
// own and copying that again. `owner` keeps the planes' memory alive.
class YuvPicture {
 public:
  struct Plane {
    const std::uint8_t* data = nullptr;
    int stride = 0;
  };

  YuvPicture(int width, int height, Plane luma, Plane blue, Plane red, YuvMatrix matrix,
             bool fullRange, std::shared_ptr<const void> owner = {});

  int width() const { return width_; }
  int height() const { return height_; }
  // The planes as the decoder made them, for a display that converts them.
  Plane luma() const { return luma_; }
  Plane blue() const { return blue_; }
  Plane red() const { return red_; }
  YuvMatrix matrix() const { return matrix_; }
  bool fullRange() const { return fullRange_; }

  // Writes the picture's pixels in the rectangle (x, y, width, height) as
  // opaque cairo ARGB32 (B, G, R, A bytes): `target` is where pixel (x, y)
  // goes, `targetStride` bytes a row. The rectangle is clipped to the
  // picture; any offset gives the pixels a whole-picture conversion gives.
  void convert(int x, int y, int width, int height, std::uint8_t* target, int targetStride) const;
  // The whole picture.
  void convert(std::uint8_t* target, int targetStride) const {
    convert(0, 0, width_, height_, target, targetStride);
  }

 private:
  // Rows from an even one (or a single row), columns from any.
  void convertRows(int x, int y, int width, int height, std::uint8_t* target,
                   int targetStride) const;
  // Columns from an even one (or a single column).
  void convertAligned(int x, int y, int width, int height, std::uint8_t* target,
                      int targetStride) const;

  int width_;
  int height_;
  Plane luma_;
  Plane blue_;
  Plane red_;
  YuvMatrix matrix_;
  bool fullRange_;
  std::shared_ptr<const void> owner_;
};

}  // namespace zivora::media
