#include "support/ReferenceImage.h"

#include <cairo.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "ui/Canvas.h"
#include "ui/View.h"

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

namespace {

// Rows of 32-bit native-endian pixels; `mask` picks the bytes that count
// (an RGB picture leaves its top byte undefined).
struct PixelRows {
  int width;
  int height;
  int stride;
  const unsigned char* data;
  std::uint32_t mask;
  PixelRect ignored{};
};

// Compares `got`, already written to `rendered`, with the reference `name`.
::testing::AssertionResult compareWithReference(const PixelRows& got,
                                                const std::filesystem::path& rendered,
                                                const std::string& name) {
  namespace fs = std::filesystem;
  const fs::path reference =
      fs::path(ZIVORA_TEST_SOURCE_DIR) / "ui" / "reference" / (name + ".png");
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
  if (width != got.width || height != got.height) {
    return ::testing::AssertionFailure()
           << "size " << got.width << "x" << got.height << ", reference " << width << "x" << height;
  }
  cairo_surface_flush(expected.get());
  const unsigned char* want = cairo_image_surface_get_data(expected.get());
  const int wantStride = cairo_image_surface_get_stride(expected.get());
  long differing = 0;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      if (got.ignored.contains(x, y)) continue;
      std::uint32_t a, b;
      std::memcpy(&a, want + y * wantStride + x * 4, 4);
      std::memcpy(&b, got.data + y * got.stride + x * 4, 4);
      if (channelDifference(a & got.mask, b & got.mask) > kChannelTolerance) ++differing;
    }
  }
  if (differing > kAllowedShare * width * height) {
    return ::testing::AssertionFailure()
           << differing << " of " << width * height << " pixels differ from " << reference
           << "; this rendering: " << rendered;
  }
  return ::testing::AssertionSuccess();
}

std::filesystem::path renderedPath(const std::string& name) {
  const auto rendered = std::filesystem::path(ZIVORA_TEST_OUTPUT_DIR) / (name + ".png");
  std::filesystem::create_directories(rendered.parent_path());
  return rendered;
}

}  // namespace

::testing::AssertionResult matchesReference(const ui::Canvas& canvas, const std::string& name) {
  const auto rendered = renderedPath(name);
  canvas.writePng(rendered);
  return compareWithReference(
      {canvas.pixelWidth(), canvas.pixelHeight(), canvas.stride(), canvas.pixels(), 0xffffffffu},
      rendered, name);
}

::testing::AssertionResult matchesReference(int width, int height,
                                            const std::vector<std::uint32_t>& rgb,
                                            const std::string& name, PixelRect ignored) {
  if (width <= 0 || height <= 0 || rgb.size() != std::size_t(width) * height)
    return ::testing::AssertionFailure() << "no picture for " << name;
  const auto rendered = renderedPath(name);
  std::vector<std::uint32_t> copy = rgb;
  std::unique_ptr<cairo_surface_t, SurfaceDeleter> surface(cairo_image_surface_create_for_data(
      reinterpret_cast<unsigned char*>(copy.data()), CAIRO_FORMAT_RGB24, width, height, width * 4));
  cairo_surface_write_to_png(surface.get(), rendered.c_str());
  return compareWithReference(
      {width, height, width * 4, reinterpret_cast<const unsigned char*>(rgb.data()), 0xffffffu,
       ignored},
      rendered, name);
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

void composeChanges(ui::Canvas& canvas, ui::View& root) {
  ui::PixelRegion damage;
  canvas.collectDamage(root, damage);
  canvas.compose({&root}, damage, ui::Color::clear());
}

::testing::AssertionResult drawnAfresh(const ui::Canvas& canvas, ui::View& root) {
  ui::Canvas fresh(canvas.points(), canvas.scale());
  fresh.render(root);
  return samePixels(canvas, fresh);
}

}  // namespace zivora::test
