#pragma once

namespace zivora::ui {

// What the post-video screen tells the placement controller.
class ZVPostVideoControllerDelegate {
 public:
  virtual ~ZVPostVideoControllerDelegate() = default;
  virtual void tapClosePostVideo() = 0;
  virtual void tapTarget() = 0;
  virtual void videoWindowWillClose() = 0;
  // The screen is gone and its window released.
  virtual void didHidePostVideo() = 0;
};

}  // namespace zivora::ui
