#include "ui/ZVPostVideoController.h"

#include "util/Guard.h"

namespace zivora::ui {

ZVPostVideoController::ZVPostVideoController(std::weak_ptr<Presenter> presenter,
                                             ZVPostVideoView::PathForURL pathForURL,
                                             std::optional<std::string> closeButtonURL)
    : presenter_(std::move(presenter)),
      pathForURL_(std::move(pathForURL)),
      closeButtonURL_(std::move(closeButtonURL)) {}

void ZVPostVideoController::initWithConfiguration(nlohmann::json adConfiguration) {
  adConfiguration_ = std::move(adConfiguration);
}

void ZVPostVideoController::show() {
  guarded("ZVPostVideoController", "show", [&] {
    auto presenter = lockPresenter(presenter_);
    window_ = std::make_shared<Window>(presenter->screen().bounds());
    view_ = std::make_shared<ZVPostVideoView>(adConfiguration_, presenter_, pathForURL_,
                                              closeButtonURL_);
    window_->addSubview(view_);
    view_->setDelegate(weak_from_this());
    window_->bindAction(ScreenAction::Close, view_->closeButton());
    window_->bindAction(ScreenAction::CallToAction, view_->callToAction());
    showing_ = true;
    presenter->present(window_);
  });
}

void ZVPostVideoController::tapCloseView() {
  if (auto d = delegate()) d->tapClosePostVideo();
}

void ZVPostVideoController::tapTargetView() {
  if (auto d = delegate()) d->tapTarget();
}

void ZVPostVideoController::videoWindowWillClose() {
  if (auto d = delegate()) d->videoWindowWillClose();
}

void ZVPostVideoController::didHidePostView() {
  guarded("ZVPostVideoController", "didHidePostView", [&] {
    if (auto presenter = presenter_.lock(); presenter && window_) presenter->dismiss(*window_);
    window_.reset();
    showing_ = false;
    view_.reset();
    adConfiguration_ = nullptr;
    if (auto d = delegate()) d->didHidePostVideo();
  });
}

}  // namespace zivora::ui
