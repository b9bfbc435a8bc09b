// Converting a 4:2:0 picture in parts: any rectangle gives the pixels the
// whole picture's conversion has there, in cairo's byte order.
#include <gtest/gtest.h>

#include <vector>

#include "platform/media/YuvPicture.h"

namespace zivora::media {
namespace {

// Odd sizes, so the last column and row have chroma samples of their own.
constexpr int kWidth = 37;
constexpr int kHeight = 23;
constexpr int kChromaWidth = (kWidth + 1) / 2;
constexpr int kChromaHeight = (kHeight + 1) / 2;

struct Planes {
  Planes() : luma(kWidth * kHeight), blue(kChromaWidth * kChromaHeight), red(blue.size()) {
    // Values that differ from pixel to pixel and from sample to sample, so a
    // chroma sample taken one row or column off shows.
    for (std::size_t i = 0; i < luma.size(); ++i)
      luma[i] = static_cast<std::uint8_t>(16 + i * 7 % 220);
    for (std::size_t i = 0; i < blue.size(); ++i) {
      blue[i] = static_cast<std::uint8_t>(16 + i * 37 % 224);
      red[i] = static_cast<std::uint8_t>(240 - i * 53 % 224);
    }
  }
  YuvPicture picture() const {
    return YuvPicture(kWidth, kHeight, {luma.data(), kWidth}, {blue.data(), kChromaWidth},
                      {red.data(), kChromaWidth}, YuvMatrix::Bt709, false);
  }
  std::vector<std::uint8_t> luma, blue, red;
};

TEST(YuvPictureTest, AnyRectangleHasTheWholeConversionsPixelsAndNoMore) {
  const Planes planes;
  const YuvPicture picture = planes.picture();
  std::vector<std::uint8_t> whole(kWidth * kHeight * 4);
  picture.convert(whole.data(), kWidth * 4);

  struct Area {
    int x, y, width, height;
  };
  // Odd and even corners and sizes, single pixels and rows, and rectangles
  // reaching past the picture's edges.
  for (const Area area :
       {Area{1, 1, 5, 4}, Area{2, 3, 1, 1}, Area{3, 2, 1, 6}, Area{36, 22, 1, 1}, Area{2, 5, 10, 1},
        Area{0, 0, kWidth, kHeight}, Area{-3, -2, 8, 6}, Area{30, 19, 20, 20}}) {
    SCOPED_TRACE(testing::Message()
                 << area.x << "," << area.y << " " << area.width << "x" << area.height);
    const int stride = area.width * 4;
    std::vector<std::uint8_t> part(static_cast<std::size_t>(stride * area.height), 0xab);
    picture.convert(area.x, area.y, area.width, area.height, part.data(), stride);
    for (int row = 0; row < area.height; ++row) {
      for (int column = 0; column < area.width; ++column) {
        const int x = area.x + column, y = area.y + row;
        const std::uint8_t* got = part.data() + row * stride + column * 4;
        const bool inside = x >= 0 && y >= 0 && x < kWidth && y < kHeight;
        const std::vector<std::uint8_t> want =
            inside ? std::vector<std::uint8_t>(whole.begin() + (y * kWidth + x) * 4,
                                               whole.begin() + (y * kWidth + x) * 4 + 4)
                   : std::vector<std::uint8_t>(4, 0xab);
        ASSERT_EQ(std::vector<std::uint8_t>(got, got + 4), want) << "at " << x << "," << y;
      }
    }
  }
}

TEST(YuvPictureTest, PixelsAreOpaqueBlueGreenRedBytes) {
  // Studio-range BT.601 red.
  const std::uint8_t luma[4] = {81, 81, 81, 81};
  const std::uint8_t blue[1] = {90};
  const std::uint8_t red[1] = {240};
  const YuvPicture picture(2, 2, {luma, 2}, {blue, 1}, {red, 1}, YuvMatrix::Bt601, false);
  std::uint8_t pixels[16] = {};
  picture.convert(pixels, 8);
  for (int i = 0; i < 4; ++i) {
    EXPECT_LT(pixels[i * 4 + 0], 8);
    EXPECT_LT(pixels[i * 4 + 1], 8);
    EXPECT_GT(pixels[i * 4 + 2], 247);
    EXPECT_EQ(pixels[i * 4 + 3], 255);
  }
}

}  // namespace
}  // namespace zivora::media
