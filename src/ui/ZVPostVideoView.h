#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "ui/Button.h"
#include "ui/ImageView.h"
#include "ui/Label.h"
#include "ui/Presenter.h"
#include "ui/ZVPostVideoViewDelegate.h"

namespace zivora::ui {

// The screen after the video: the ad's still image, a close button in the
// top right corner and, when the ad carries motivation information, a panel
// along the bottom with an optional currency icon, a title, a description
// and an install button. Taps on the image or the button are clicks; the
// close button slides the screen out.
class ZVPostVideoView : public View {
 public:
  // The local file of a downloaded resource URL.
  using PathForURL = std::function<std::filesystem::path(const std::string& url)>;

  ZVPostVideoView(nlohmann::json adConfiguration, std::weak_ptr<Presenter> presenter,
                  PathForURL pathForURL, std::optional<std::string> closeButtonURL);

  void setDelegate(std::weak_ptr<ZVPostVideoViewDelegate> delegate) {
    delegate_ = std::move(delegate);
  }

  // The controls, for the key and controller bindings and for tests.
  std::shared_ptr<Button> closeButton() const { return closeButton_.lock(); }
  std::shared_ptr<Button> installButton() const { return installButton_.lock(); }
  // The call to action: the install button of a motivated ad, else the
  // picture, which takes taps.
  std::shared_ptr<View> callToAction() const;
  std::shared_ptr<ImageView> imageView() const { return imageView_.lock(); }
  std::shared_ptr<View> motivatedPanel() const { return panel_.lock(); }

  void closeHandler();
  void clickInstallHandler();
  void animateHide();

 private:
  void setup();
  void addImage();
  void addCloseButton();
  void setMotivatedView(const nlohmann::json& motivation);
  void handleTap();
  std::shared_ptr<ZVPostVideoViewDelegate> delegate() const { return delegate_.lock(); }

  nlohmann::json adConfiguration_;
  std::weak_ptr<Presenter> presenter_;
  PathForURL pathForURL_;
  std::optional<std::string> closeButtonURL_;
  std::weak_ptr<ZVPostVideoViewDelegate> delegate_;
  std::weak_ptr<ImageView> imageView_;
  std::weak_ptr<Button> closeButton_;
  std::weak_ptr<Button> installButton_;
  std::weak_ptr<View> panel_;
};

}  // namespace zivora::ui
