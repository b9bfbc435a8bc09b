#pragma once

namespace zivora::ui {

// The desktop's screensaver, which stands for a phone's idle timer: the
// video keeps the screen on and the post-video screen gives the host's
// setting back. Both calls do nothing while SDL's video is not running.
class ScreenSaver {
 public:
  static bool isDisabled();
  static void setDisabled(bool disabled);
};

}  // namespace zivora::ui
