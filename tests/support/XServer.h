#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/ChildProcess.h"

namespace zivora::test {

// What an X screen showed: pixels as 0x00RRGGBB, row by row.
struct Screenshot {
  int width = 0;
  int height = 0;
  std::vector<std::uint32_t> pixels;

  bool empty() const { return pixels.empty(); }
  std::uint32_t at(int x, int y) const { return pixels[std::size_t(y) * width + x]; }
  // Writes the picture as PNG; false when it cannot.
  bool writePng(const std::filesystem::path& file) const;
};

// Reads an X window dump (xwd's format, 24 or 32 bits per pixel); an empty
// picture for anything else.
Screenshot readXwd(const std::string& bytes);

// An X server of the test's own (Xvfb) on a display number it picks itself,
// and the tools that stand for a person's hands and eyes there: xdotool for
// keys and window states, xwd for what the screen shows. The server ends
// with the object.
class XServer {
 public:
  // Null, with the reason in `why`, when Xvfb does not start.
  static std::unique_ptr<XServer> start(int width, int height, std::string& why);

  // ":N", for DISPLAY.
  const std::string& display() const { return display_; }

  // Runs xdotool on this display; its output, or nullopt when it failed.
  std::optional<std::string> xdotool(const std::vector<std::string>& arguments,
                                     std::chrono::seconds limit = std::chrono::seconds(30));
  // What the whole screen shows now (empty when xwd failed).
  Screenshot screenshot();

 private:
  XServer(std::unique_ptr<ChildProcess> server, std::string display)
      : server_(std::move(server)), display_(std::move(display)) {}

  // Runs a program with DISPLAY set to this server; its output when it
  // exited with status 0.
  std::optional<std::string> run(std::vector<std::string> arguments, std::chrono::seconds limit);

  std::unique_ptr<ChildProcess> server_;
  std::string display_;
};

}  // namespace zivora::test
