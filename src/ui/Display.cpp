#include "ui/Display.h"

#include <stdexcept>
#include <string>

#include "platform/dispatch/QueueAssert.h"
#include "platform/dispatch/Runtime.h"
#include "sdk/Context.h"
#include "sdk/Defaults.h"
#include "ui/WindowPresenter.h"
#include "util/Guard.h"
#include "util/ZVLog.h"
#include "zivora/ZVConstants.h"

namespace zivora::ui {

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

void Display::checkHost(const HostOptions& host) {
  if (host.mainQueueMode != MainQueueMode::OwnThread) return;
  if (!defaults::windowSystemStartedByHost() && !host.hostWindow) return;
  {
    std::lock_guard lock(mutex_);
    hostDrivesSdl_ = true;
  }
  ZVLog::LogWarning(
      "[Zivora] The host drives SDL video itself, but HostOptions::mainQueueMode is OwnThread: "
      "two threads cannot drive SDL. Initialise with MainQueueMode::HostPumped and call "
      "Zivora::pump() once a frame from the thread that drives SDL (set HostOptions::hostWindow "
      "to draw ads into your window); until then ads fail with ZivoraErrorDisplayUnavailable (5).");
}

void Display::open() {
  auto context = context_.lock();
  if (!context) throw std::logic_error("no context for the display");
  ZV_ASSERT_ON(context->runtime().mainQueue());
  if (availability_ != Availability::Unknown) return;
  std::shared_ptr<Presenter> presenter = currentPresenter();
  if (!presenter) presenter = makePresenter(context);
  if (!presenter) {
    markUnavailable();
    return;
  }
  std::optional<Size> pixels;
  if (auto* window = dynamic_cast<WindowPresenter*>(presenter.get())) {
    pixels = window->displayPixels();
  }
  if (!pixels) {
    const Screen& screen = presenter->screen();
    pixels = Size{screen.size.width * screen.scale, screen.size.height * screen.scale};
  }
  {
    std::lock_guard lock(mutex_);
    pixelSize_ = pixels;
  }
  availability_ = Availability::Available;
  refreshOrientation();
}

std::shared_ptr<Presenter> Display::makePresenter(const std::shared_ptr<Context>& context) {
  {
    std::lock_guard lock(mutex_);
    if (hostDrivesSdl_) return nullptr;
  }
  auto& runtime = context->runtime();
  std::string why;
  std::shared_ptr<Presenter> made = WindowPresenter::create(context->host(), runtime.mainQueue(),
                                                            runtime.clock(), lifecycle_, why);
  if (!made) {
    ZVLog::LogWarning(
        "[Zivora] No ad can be shown: the display did not open ({}). Ads fail with "
        "ZivoraErrorDisplayUnavailable (5). An X11 display (DISPLAY, also XWayland on Wayland "
        "desktops) is needed, or SDL_VIDEODRIVER=dummy to draw ads in memory only.",
        why);
    return nullptr;
  }
  {
    std::lock_guard lock(mutex_);
    if (presenter_) return presenter_;  // a host's presenter came first
    presenter_ = made;
  }
  // SDL's window and video subsystem are released on the thread that made
  // them, after the main queue's last task.
  runtime.atMainQueueEnd([weak = weak_from_this()] {
    if (auto display = weak.lock()) display->closeScreens();
  });
  return made;
}

void Display::markUnavailable() { availability_ = Availability::Unavailable; }

std::shared_ptr<Presenter> Display::currentPresenter() const {
  std::lock_guard lock(mutex_);
  return presenter_;
}

Presenter& Display::presenter() { return *sharedPresenter(); }

std::shared_ptr<Presenter> Display::sharedPresenter() {
  if (auto presenter = currentPresenter()) return presenter;
  open();
  if (auto presenter = currentPresenter()) return presenter;
  throw std::logic_error("no display for ad screens");
}

bool Display::setPresenter(std::unique_ptr<Presenter> presenter) {
  std::lock_guard lock(mutex_);
  if (presenter_) return false;
  presenter_ = std::move(presenter);
  // A presenter chosen after a failed opening makes the display usable.
  if (availability_ == Availability::Unavailable) availability_ = Availability::Unknown;
  return true;
}

bool Display::handleEvent(const void* nativeEvent) {
  const auto presenter = currentPresenter();
  if (!presenter || !presenter->isShowing()) return false;
  auto context = context_.lock();
  if (!context) return false;
  auto& mainQueue = context->runtime().mainQueue();
  if (mainQueue.isCurrent()) {
    handleOnMainQueue(nativeEvent);
    return true;
  }
  // Only the window knows what a native event holds, and so how to copy it.
  auto* window = dynamic_cast<WindowPresenter*>(presenter.get());
  if (!window) return true;
  mainQueue.async([self = shared_from_this(), copy = window->copyEvent(nativeEvent)] {
    guarded("Display", "handleEvent", [&] { self->handleOnMainQueue(copy.get()); });
  });
  return true;
}

void Display::handleOnMainQueue(const void* nativeEvent) {
  // Not under the lock while the event runs: a tap may open the next screen.
  if (auto* window = dynamic_cast<WindowPresenter*>(currentPresenter().get())) {
    window->handleEvent(nativeEvent);
  }
}

void Display::refreshOrientation() {
  const Size size = presenter().screen().size;
  orientation_ = size.width > size.height ? TS_ORIENTATION_LANDSCAPE : TS_ORIENTATION_PORTRAIT;
}

std::optional<Size> Display::pixelSize() const {
  std::lock_guard lock(mutex_);
  return pixelSize_;
}

void Display::closeScreens() {
  std::shared_ptr<Presenter> presenter;
  {
    std::lock_guard lock(mutex_);
    presenter.swap(presenter_);
  }
}

bool Display::isPresenting() const {
  auto presenter = currentPresenter();
  return presenter && presenter->isShowing();
}

}  // namespace zivora::ui
