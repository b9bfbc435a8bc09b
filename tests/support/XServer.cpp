#include "support/XServer.h"

#include <cairo.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <sstream>

namespace zivora::test {
namespace {

// xwd's header: 25 big-endian 32-bit fields, then the window's name.
enum XwdField {
  kHeaderSize = 0,
  kPixmapFormat = 2,
  kWidth = 4,
  kHeight = 5,
  kByteOrder = 7,
  kBitsPerPixel = 11,
  kBytesPerLine = 12,
  kRedMask = 14,
  kGreenMask = 15,
  kBlueMask = 16,
  kColourCount = 19,
  kFieldCount = 25,
};
constexpr std::uint32_t kZPixmap = 2;
constexpr std::size_t kColourEntrySize = 12;

std::uint32_t bigEndian(const std::string& bytes, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i)
    value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
  return value;
}

// One colour channel of a pixel: where its bits lie, worked out once per
// picture so the per-pixel loop stays cheap even in an unoptimised build.
class Channel {
 public:
  explicit Channel(std::uint32_t mask) {
    if (mask == 0) return;
    while (!(mask >> shift_ & 1)) ++shift_;
    top_ = mask >> shift_;
  }
  // The channel's bits of `pixel`, scaled to 8 bits.
  std::uint32_t of(std::uint32_t pixel) const {
    const std::uint32_t value = pixel >> shift_ & top_;
    return top_ == 0xff || top_ == 0 ? value : value * 255 / top_;
  }

 private:
  int shift_ = 0;
  std::uint32_t top_ = 0;
};

}  // namespace

bool Screenshot::writePng(const std::filesystem::path& file) const {
  if (empty()) return false;
  std::filesystem::create_directories(file.parent_path());
  std::vector<std::uint32_t> copy = pixels;
  cairo_surface_t* surface = cairo_image_surface_create_for_data(
      reinterpret_cast<unsigned char*>(copy.data()), CAIRO_FORMAT_RGB24, width, height, width * 4);
  const bool written = cairo_surface_write_to_png(surface, file.c_str()) == CAIRO_STATUS_SUCCESS;
  cairo_surface_destroy(surface);
  return written;
}

Screenshot readXwd(const std::string& bytes) {
  if (bytes.size() < kFieldCount * 4) return {};
  auto field = [&](int index) { return bigEndian(bytes, std::size_t(index) * 4); };
  const std::uint32_t bitsPerPixel = field(kBitsPerPixel);
  if (field(kPixmapFormat) != kZPixmap || (bitsPerPixel != 32 && bitsPerPixel != 24)) return {};
  Screenshot shot;
  shot.width = static_cast<int>(field(kWidth));
  shot.height = static_cast<int>(field(kHeight));
  const std::size_t stride = field(kBytesPerLine);
  const std::size_t start =
      std::size_t(field(kHeaderSize)) + field(kColourCount) * kColourEntrySize;
  const std::size_t bytesPerPixel = bitsPerPixel / 8;
  if (shot.width <= 0 || shot.height <= 0 || stride < shot.width * bytesPerPixel ||
      bytes.size() < start + stride * shot.height)
    return {};
  const bool mostSignificantFirst = field(kByteOrder) == 1;
  const Channel red(field(kRedMask)), green(field(kGreenMask)), blue(field(kBlueMask));
  shot.pixels.resize(std::size_t(shot.width) * shot.height);
  std::uint32_t* out = shot.pixels.data();
  for (int y = 0; y < shot.height; ++y) {
    const auto* in = reinterpret_cast<const unsigned char*>(bytes.data()) + start + y * stride;
    for (int x = 0; x < shot.width; ++x, in += bytesPerPixel) {
      std::uint32_t pixel = 0;
      for (std::size_t i = 0; i < bytesPerPixel; ++i) {
        const std::size_t byte = mostSignificantFirst ? i : bytesPerPixel - 1 - i;
        pixel = pixel << 8 | in[byte];
      }
      *out++ = red.of(pixel) << 16 | green.of(pixel) << 8 | blue.of(pixel);
    }
  }
  return shot;
}

std::unique_ptr<XServer> XServer::start(int width, int height, std::string& why) {
  const std::string screen = std::to_string(width) + "x" + std::to_string(height) + "x24";
  auto server = ChildProcess::start(
      {"Xvfb", "-displayfd", "1", "-screen", "0", screen, "-nolisten", "tcp", "-noreset"},
      {.input = {}, .captureOutput = true});
  if (!server) {
    why = "Xvfb is not installed (scripts/setup.sh installs xvfb)";
    return nullptr;
  }
  // Xvfb writes its display number once it accepts clients.
  auto number = server->readLine(std::chrono::seconds(30));
  if (!number || number->empty()) {
    why = "Xvfb did not report a display";
    return nullptr;
  }
  return std::unique_ptr<XServer>(new XServer(std::move(server), ":" + *number));
}

std::optional<std::string> XServer::run(std::vector<std::string> arguments,
                                        std::chrono::seconds limit) {
  arguments.insert(arguments.begin(), {"env", "DISPLAY=" + display_});
  auto child = ChildProcess::start(arguments, {.input = {}, .captureOutput = true});
  if (!child) return std::nullopt;
  std::string output;
  while (auto line = child->readLine(limit)) output += *line + "\n";
  if (!child->waitFor(limit) || child->exitCode() != 0) return std::nullopt;
  return output;
}

std::optional<std::string> XServer::xdotool(const std::vector<std::string>& arguments,
                                            std::chrono::seconds limit) {
  std::vector<std::string> command{"xdotool"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return run(std::move(command), limit);
}

Screenshot XServer::screenshot() {
  static std::atomic<int> taken{0};
  const auto file = std::filesystem::temp_directory_path() /
                    ("zivora-xwd-" + std::to_string(getpid()) + "-" + std::to_string(++taken));
  if (!run({"xwd", "-root", "-silent", "-out", file.string()}, std::chrono::seconds(30))) return {};
  std::ifstream in(file, std::ios::binary);
  std::stringstream bytes;
  bytes << in.rdbuf();
  std::filesystem::remove(file);
  return readXwd(bytes.str());
}

}  // namespace zivora::test
