#pragma once

namespace zivora::ui {

// What the post-video view tells its controller.
class ZVPostVideoViewDelegate {
 public:
  virtual ~ZVPostVideoViewDelegate() = default;
  // The close button was tapped, before the slide-out.
  virtual void tapCloseView() = 0;
  // The image or the install button was tapped.
  virtual void tapTargetView() = 0;
  virtual void videoWindowWillClose() = 0;
  // The slide-out finished.
  virtual void didHidePostView() = 0;
};

}  // namespace zivora::ui
