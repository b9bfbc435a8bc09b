#pragma once

namespace zivora::platform {

// The desktop's screensaver, which stands for a phone's idle timer: the
// video keeps the screen on and the post-video screen gives the host's
// setting back. Both calls do nothing while the display's video is not
// running. Defined by the Linux implementation (SDL's video subsystem).
class ScreenSaver {
 public:
  static bool isDisabled();
  static void setDisabled(bool disabled);
};

}  // namespace zivora::platform
