#include "ui/Display.h"

#include <stdexcept>

#include "core/Context.h"
#include "platform/dispatch/Runtime.h"
#include "ui/SdlPresenter.h"
#include "util/ZVLog.h"
#include "zivora/ZVConstants.h"

namespace zivora::ui {
namespace {
// What a headless run renders at when the host gave no size.
constexpr Size kHeadlessSize{1280, 720};
}  // namespace

Display::Display(std::weak_ptr<Context> context) : context_(std::move(context)) {}

std::shared_ptr<Display> Display::of(const std::shared_ptr<Context>& context) {
  // Work that outlived a reset finds no context; its guard ends it here.
  if (!context) throw std::logic_error("no context for the display");
  std::weak_ptr<Context> weak = context;
  return context->instance<Display>([&] {
    auto display = std::make_shared<Display>(weak);
    // Shown screens hold their views, and the views hold the display.
    context->onTeardown([screens = std::weak_ptr<Display>(display)] {
      if (auto display = screens.lock()) display->closeScreens();
    });
    return display;
  });
}

Presenter& Display::presenter() { return *sharedPresenter(); }

std::shared_ptr<Presenter> Display::sharedPresenter() {
  std::lock_guard lock(mutex_);
  if (presenter_) return presenter_;
  auto context = context_.lock();
  if (!context) throw std::logic_error("no context for the display");
  auto& runtime = context->runtime();
  const HostOptions& host = context->host();
  presenter_ = SdlPresenter::create(host, runtime.mainQueue(), runtime.clock(), lifecycle_);
  if (!presenter_) {
    ZVLog::LogWarning("[Display] No display: ad screens are drawn in memory only");
    const bool sized = host.screenWidth > 0 && host.screenHeight > 0;
    Screen screen{sized ? Size{double(host.screenWidth), double(host.screenHeight)} : kHeadlessSize,
                  1, host.safeArea};
    presenter_ = std::make_unique<Presenter>(screen, runtime.mainQueue(), runtime.clock());
  }
  return presenter_;
}

bool Display::setPresenter(std::unique_ptr<Presenter> presenter) {
  std::lock_guard lock(mutex_);
  if (presenter_) return false;
  presenter_ = std::move(presenter);
  return true;
}

bool Display::handleEvent(const SDL_Event& event) {
  SdlPresenter* sdl = nullptr;
  {
    // Not held while the event runs: a tap may open the next screen.
    std::lock_guard lock(mutex_);
    sdl = dynamic_cast<SdlPresenter*>(presenter_.get());
  }
  if (!sdl || sdl->windows().empty()) return false;
  sdl->handleEvent(event);
  // An ad screen is modal: the host acts on none of the events meanwhile.
  return true;
}

void Display::refreshOrientation() {
  const Size size = presenter().screen().size;
  orientation_ = size.width > size.height ? TS_ORIENTATION_LANDSCAPE : TS_ORIENTATION_PORTRAIT;
}

void Display::closeScreens() {
  std::shared_ptr<Presenter> presenter;
  {
    std::lock_guard lock(mutex_);
    presenter.swap(presenter_);
  }
}

bool Display::isPresenting() const {
  std::lock_guard lock(mutex_);
  return presenter_ && !presenter_->windows().empty();
}

}  // namespace zivora::ui
