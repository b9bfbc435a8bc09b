#pragma once

#include <filesystem>

namespace zivora::test {

// MP4 files for playback tests, made with gst-launch-1.0 on first use and
// kept in the build tree (never committed). H.264 in MP4 with the moov box
// first, like the ad server's files. Throws std::runtime_error when the
// encoder fails.
class TestMedia {
 public:
  // 320x240, 30 fps, 2 s, with AAC sound.
  static std::filesystem::path clip();
  // 1280x720, 30 fps, 10 s, video only: benchmarks.
  static std::filesystem::path hd();

 private:
  static std::filesystem::path make(const char* name, const char* pipeline);
};

}  // namespace zivora::test
