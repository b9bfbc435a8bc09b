#include "support/TestMedia.h"

#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#ifndef ZIVORA_TEST_MEDIA_DIR
#error "ZIVORA_TEST_MEDIA_DIR names the directory of the generated media"
#endif

namespace zivora::test {

std::filesystem::path TestMedia::clip() {
  return make("clip-320x240-2s.mp4",
              "videotestsrc num-buffers=60 "
              "! video/x-raw,format=I420,width=320,height=240,framerate=30/1 "
              "! x264enc speed-preset=ultrafast key-int-max=30 ! mux. "
              "audiotestsrc num-buffers=86 ! audioconvert ! avenc_aac ! mux. "
              "mp4mux name=mux faststart=true");
}

std::filesystem::path TestMedia::hd() {
  return make("hd-1280x720-10s.mp4",
              "videotestsrc num-buffers=300 "
              "! video/x-raw,format=I420,width=1280,height=720,framerate=30/1 "
              "! x264enc speed-preset=ultrafast key-int-max=30 ! mp4mux name=mux faststart=true");
}

// Test processes run side by side: each writes its own temporary file and
// renames it into place, so a reader never sees half a file.
std::filesystem::path TestMedia::make(const char* name, const char* pipeline) {
  const std::filesystem::path dir = ZIVORA_TEST_MEDIA_DIR;
  const auto path = dir / name;
  if (std::filesystem::exists(path)) return path;
  std::filesystem::create_directories(dir);
  const auto temporary = dir / (std::string(name) + ".tmp" + std::to_string(::getpid()));
  const std::string command = std::string("gst-launch-1.0 -q -e ") + pipeline +
                              " mux. ! filesink location=" + temporary.string() +
                              " >/dev/null 2>&1";
  if (std::system(command.c_str()) != 0 || !std::filesystem::exists(temporary)) {
    std::filesystem::remove(temporary);
    throw std::runtime_error("could not make the test media " + path.string());
  }
  std::filesystem::rename(temporary, path);
  return path;
}

}  // namespace zivora::test
