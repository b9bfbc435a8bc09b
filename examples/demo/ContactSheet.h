#pragma once

#include <cairo.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace zivora::ui {
class Canvas;
}

namespace demo {

// Key moments of a headless ad, side by side in one PNG, each scaled down
// and captioned.
class ContactSheet {
 public:
  // Copies what `canvas` shows now.
  void add(const zivora::ui::Canvas& canvas, std::string caption);
  std::size_t size() const { return frames_.size(); }
  bool write(const std::filesystem::path& file) const;

 private:
  struct SurfaceDeleter {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
  };
  struct Frame {
    std::unique_ptr<cairo_surface_t, SurfaceDeleter> image;
    std::string caption;
  };
  std::vector<Frame> frames_;
};

}  // namespace demo
