#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace zivora::sandbox {

// The media the sandbox's ads point at: H.264/AAC MP4s of a few lengths, the
// post-video picture, the currency icon and the three button images of the
// handshake. They are generated with gst-launch-1.0 when missing and kept in
// one cache directory across runs, so only the first start pays for them.
class SandboxMedia {
 public:
  static constexpr const char* kShortVideo = "ad-3s.mp4";    // 640x360, 3 s
  static constexpr const char* kLongVideo = "ad-30s.mp4";    // 640x360, 30 s
  static constexpr const char* kLargeVideo = "ad-5mib.mp4";  // 1280x720, 10 s, over 5 MiB
  static constexpr const char* kPostVideoImage = "post-video.png";
  static constexpr const char* kCurrencyIcon = "currency.png";
  static constexpr const char* kCloseButton = "close.png";
  static constexpr const char* kSoundOnButton = "sound_on.png";
  static constexpr const char* kSoundOffButton = "sound_off.png";

  // $TMPDIR/zivora-sandbox-media-2
  static std::filesystem::path defaultDirectory();

  // Every file name above.
  static std::vector<std::string> names();

  // Makes the missing files in `directory`. Processes that start at once
  // take turns on a lock file and each file is renamed into place complete,
  // so a reader never sees half a file. Cheap when everything exists.
  // Throws std::runtime_error when a file cannot be made.
  static void ensure(const std::filesystem::path& directory);

 private:
  static bool allExist(const std::filesystem::path& directory);
  static void make(const std::filesystem::path& directory, const std::string& name);
};

}  // namespace zivora::sandbox
