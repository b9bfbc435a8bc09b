#pragma once

#include <cairo.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "zivora/Zivora.h"

namespace demo {

// Key moments of a headless ad, side by side in one PNG, each scaled down
// and captioned.
class ContactSheet {
 public:
  // Keeps a picture of the ad screens (Zivora::captureScreen()).
  void add(const zivora::ZivoraScreenImage& image, std::string caption);
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
