#include "platform/media/YuvPicture.h"

#include <libyuv/convert_argb.h>

#include <algorithm>
#include <bit>

namespace zivora::media {
namespace {

// libyuv's ARGB is B, G, R, A in memory: cairo's ARGB32 on a little-endian
// machine.
static_assert(std::endian::native == std::endian::little,
              "pictures are written as B, G, R, A bytes");

const libyuv::YuvConstants& constantsOf(YuvMatrix matrix, bool fullRange) {
  switch (matrix) {
    case YuvMatrix::Bt709:
      return fullRange ? libyuv::kYuvF709Constants : libyuv::kYuvH709Constants;
    case YuvMatrix::Bt2020:
      return fullRange ? libyuv::kYuvV2020Constants : libyuv::kYuv2020Constants;
    case YuvMatrix::Bt601:
      break;
  }
  return fullRange ? libyuv::kYuvJPEGConstants : libyuv::kYuvI601Constants;
}

}  // namespace

YuvPicture::YuvPicture(int width, int height, Plane luma, Plane blue, Plane red, YuvMatrix matrix,
                       bool fullRange, std::shared_ptr<const void> owner)
    : width_(std::max(width, 0)),
      height_(std::max(height, 0)),
      luma_(luma),
      blue_(blue),
      red_(red),
      matrix_(matrix),
      fullRange_(fullRange),
      owner_(std::move(owner)) {}

void YuvPicture::convert(int x, int y, int width, int height, std::uint8_t* target,
                         int targetStride) const {
  const int left = std::max(x, 0), top = std::max(y, 0);
  const int right = std::min(x + width, width_), bottom = std::min(y + height, height_);
  if (left >= right || top >= bottom || !target) return;
  target += static_cast<std::ptrdiff_t>(top - y) * targetStride + (left - x) * 4;
  // libyuv steps to the next chroma row after every odd row it writes: a
  // block starting on an odd row would take its chroma one row late.
  if (top % 2 != 0) {
    convertRows(left, top, right - left, 1, target, targetStride);
    target += targetStride;
    if (top + 1 < bottom)
      convertRows(left, top + 1, right - left, bottom - top - 1, target, targetStride);
    return;
  }
  convertRows(left, top, right - left, bottom - top, target, targetStride);
}

void YuvPicture::convertRows(int x, int y, int width, int height, std::uint8_t* target,
                             int targetStride) const {
  // Likewise for columns: two pixels share a chroma sample from an even one.
  if (x % 2 != 0) {
    convertAligned(x, y, 1, height, target, targetStride);
    if (width > 1) convertAligned(x + 1, y, width - 1, height, target + 4, targetStride);
    return;
  }
  convertAligned(x, y, width, height, target, targetStride);
}

void YuvPicture::convertAligned(int x, int y, int width, int height, std::uint8_t* target,
                                int targetStride) const {
  const auto at = [](const Plane& plane, int column, int row) {
    return plane.data + static_cast<std::ptrdiff_t>(row) * plane.stride + column;
  };
  libyuv::I420ToARGBMatrix(at(luma_, x, y), luma_.stride, at(blue_, x / 2, y / 2), blue_.stride,
                           at(red_, x / 2, y / 2), red_.stride, target, targetStride,
                           &constantsOf(matrix_, fullRange_), width, height);
}

}  // namespace zivora::media
