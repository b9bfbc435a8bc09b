#pragma once

#include <memory>
#include <nlohmann/json.hpp>

#include "ui/Presenter.h"
#include "ui/ZVPostVideoControllerDelegate.h"
#include "ui/ZVPostVideoView.h"
#include "ui/ZVPostVideoViewDelegate.h"

namespace zivora::ui {

// Owns the post-video screen's window and speaks for it to the placement
// controller. Created and shown once per showing; main queue only.
class ZVPostVideoController : public ZVPostVideoViewDelegate,
                              public std::enable_shared_from_this<ZVPostVideoController> {
 public:
  ZVPostVideoController(std::weak_ptr<Presenter> presenter, ZVPostVideoView::PathForURL pathForURL,
                        std::optional<std::string> closeButtonURL);

  void initWithConfiguration(nlohmann::json adConfiguration);
  void show();
  bool prefersStatusBarHidden() const { return true; }
  bool isShowing() const { return showing_; }
  std::shared_ptr<ZVPostVideoView> view() const { return view_; }

  void setDelegate(std::weak_ptr<ZVPostVideoControllerDelegate> delegate) {
    delegate_ = std::move(delegate);
  }

  void tapCloseView() override;
  void tapTargetView() override;
  void videoWindowWillClose() override;
  void didHidePostView() override;

 private:
  std::shared_ptr<ZVPostVideoControllerDelegate> delegate() const { return delegate_.lock(); }

  std::weak_ptr<Presenter> presenter_;
  ZVPostVideoView::PathForURL pathForURL_;
  std::optional<std::string> closeButtonURL_;
  bool showing_ = false;
  std::shared_ptr<Window> window_;
  nlohmann::json adConfiguration_;
  std::shared_ptr<ZVPostVideoView> view_;
  std::weak_ptr<ZVPostVideoControllerDelegate> delegate_;
};

}  // namespace zivora::ui
