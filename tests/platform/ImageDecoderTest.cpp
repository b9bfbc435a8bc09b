#include <cairo.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>

#include "platform/ImageDecoder.h"
#include "support/TempDir.h"

namespace zivora::platform {
namespace {

// A 3x2 PNG: opaque red, green at half alpha and a transparent pixel on the
// first row; blue on the second. cairo takes premultiplied pixels and
// writes the PNG with straight alpha.
void writePng(const std::filesystem::path& path) {
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 3, 2);
  cairo_surface_flush(surface);
  auto* data = cairo_image_surface_get_data(surface);
  const int stride = cairo_image_surface_get_stride(surface);
  auto* first = reinterpret_cast<std::uint32_t*>(data);
  auto* second = reinterpret_cast<std::uint32_t*>(data + stride);
  first[0] = 0xffff0000;
  first[1] = 0x80008000;
  first[2] = 0x00000000;
  second[0] = second[1] = second[2] = 0xff0000ff;
  cairo_surface_mark_dirty(surface);
  ASSERT_EQ(cairo_surface_write_to_png(surface, path.c_str()), CAIRO_STATUS_SUCCESS);
  cairo_surface_destroy(surface);
}

TEST(ImageDecoder, GivesStraightArgbRowByRow) {
  test::TempDir dir;
  writePng(dir.path() / "pixels.png");
  std::string why;
  auto image = ImageDecoder::decode(dir.path() / "pixels.png", why);
  ASSERT_TRUE(image) << why;
  EXPECT_EQ(image->width, 3);
  EXPECT_EQ(image->height, 2);
  ASSERT_EQ(image->pixels.size(), 6u);
  EXPECT_EQ(image->pixels[0], 0xffff0000u);
  EXPECT_EQ(image->pixels[1] >> 24, 0x80u);
  EXPECT_EQ((image->pixels[1] >> 8) & 0xff, 0xffu);  // unpremultiplied green
  EXPECT_EQ(image->pixels[2] >> 24, 0u);
  EXPECT_EQ(image->pixels[3], 0xff0000ffu);
  EXPECT_EQ(image->pixels[5], 0xff0000ffu);
}

TEST(ImageDecoder, MissingEmptyAndGarbageFilesGiveNothingWithAReason) {
  test::TempDir dir;
  std::ofstream(dir.path() / "empty.png").close();
  std::ofstream(dir.path() / "garbage.png") << "\x89PNG\r\n\x1a\n not really";
  for (const char* name : {"absent.png", "empty.png", "garbage.png"}) {
    std::string why;
    EXPECT_FALSE(ImageDecoder::decode(dir.path() / name, why)) << name;
    EXPECT_FALSE(why.empty()) << name;
  }
}

}  // namespace
}  // namespace zivora::platform
