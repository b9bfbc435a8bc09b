#include "support/ReferenceImage.h"

#include <cairo.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "ui/Canvas.h"

namespace zivora::test {
namespace {

constexpr int kChannelTolerance = 24;
constexpr double kAllowedShare = 0.005;

struct SurfaceDeleter {
  void operator()(cairo_surface_t* s) const { cairo_surface_destroy(s); }
};

int channelDifference(std::uint32_t a, std::uint32_t b) {
  int worst = 0;
  for (int shift = 0; shift < 32; shift += 8) {
    const int da = static_cast<int>((a >> shift) & 0xff);
    const int db = static_cast<int>((b >> shift) & 0xff);
    worst = std::max(worst, std::abs(da - db));
  }
  return worst;
}

}  // namespace

::testing::AssertionResult matchesReference(const ui::Canvas& canvas, const std::string& name) {
  namespace fs = std::filesystem;
  const fs::path rendered = fs::path(ZIVORA_TEST_OUTPUT_DIR) / (name + ".png");
  const fs::path reference =
      fs::path(ZIVORA_TEST_SOURCE_DIR) / "ui" / "reference" / (name + ".png");
  fs::create_directories(rendered.parent_path());
  canvas.writePng(rendered);
  const char* update = std::getenv("ZIVORA_UPDATE_REFERENCES");
  if (update && std::strcmp(update, "1") == 0) {
    fs::copy_file(rendered, reference, fs::copy_options::overwrite_existing);
    return ::testing::AssertionSuccess() << "reference updated";
  }

  std::unique_ptr<cairo_surface_t, SurfaceDeleter> expected(
      cairo_image_surface_create_from_png(reference.c_str()));
  if (cairo_surface_status(expected.get()) != CAIRO_STATUS_SUCCESS) {
    return ::testing::AssertionFailure() << "no readable reference " << reference;
  }
  const int width = cairo_image_surface_get_width(expected.get());
  const int height = cairo_image_surface_get_height(expected.get());
  if (width != canvas.pixelWidth() || height != canvas.pixelHeight()) {
    return ::testing::AssertionFailure()
           << "size " << canvas.pixelWidth() << "x" << canvas.pixelHeight() << ", reference "
           << width << "x" << height;
  }
  cairo_surface_flush(expected.get());
  const unsigned char* want = cairo_image_surface_get_data(expected.get());
  const int wantStride = cairo_image_surface_get_stride(expected.get());
  const unsigned char* got = canvas.pixels();
  long differing = 0;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      std::uint32_t a, b;
      std::memcpy(&a, want + y * wantStride + x * 4, 4);
      std::memcpy(&b, got + y * canvas.stride() + x * 4, 4);
      if (channelDifference(a, b) > kChannelTolerance) ++differing;
    }
  }
  if (differing > kAllowedShare * width * height) {
    return ::testing::AssertionFailure()
           << differing << " of " << width * height << " pixels differ from " << reference
           << "; this rendering: " << rendered;
  }
  return ::testing::AssertionSuccess();
}

::testing::AssertionResult samePixels(const ui::Canvas& got, const ui::Canvas& want) {
  if (got.pixelWidth() != want.pixelWidth() || got.pixelHeight() != want.pixelHeight()) {
    return ::testing::AssertionFailure() << "canvases of different sizes";
  }
  long differing = 0;
  int firstX = -1, firstY = -1;
  const auto rowBytes = static_cast<std::size_t>(got.pixelWidth()) * 4;
  for (int y = 0; y < got.pixelHeight(); ++y) {
    const unsigned char* a = got.pixels() + y * got.stride();
    const unsigned char* b = want.pixels() + y * want.stride();
    if (std::memcmp(a, b, rowBytes) == 0) continue;
    for (int x = 0; x < got.pixelWidth(); ++x) {
      if (std::memcmp(a + x * 4, b + x * 4, 4) == 0) continue;
      if (differing++ == 0) firstX = x, firstY = y;
    }
  }
  if (differing > 0) {
    return ::testing::AssertionFailure()
           << differing << " pixels differ, the first at (" << firstX << ", " << firstY << ")";
  }
  return ::testing::AssertionSuccess();
}

}  // namespace zivora::test
