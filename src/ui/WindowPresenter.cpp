#include "ui/WindowPresenter.h"

#include "platform/dispatch/QueueAssert.h"
#include "sdk/Defaults.h"

namespace zivora::ui {
namespace {

// What each of the window's bound keys and buttons stands for, tried in
// order until a screen takes one: going back skips a video once skipping
// is allowed and closes the post-video screen.
std::vector<ScreenAction> actionsFor(platform::SurfaceEvent::Kind kind) {
  using Kind = platform::SurfaceEvent::Kind;
  switch (kind) {
    case Kind::Back:
      return {ScreenAction::Skip, ScreenAction::Close};
    case Kind::Confirm:
      return {ScreenAction::CallToAction};
    case Kind::Sound:
      return {ScreenAction::Sound};
    default:
      return {};
  }
}

}  // namespace

std::unique_ptr<WindowPresenter> WindowPresenter::create(const HostOptions& options,
                                                         dispatch::Queue& mainQueue,
                                                         dispatch::Clock& clock,
                                                         AppLifecycle& lifecycle,
                                                         std::string& why) {
  ZV_ASSERT_ON(mainQueue);
  std::unique_ptr<platform::WindowSurface> surface = defaults::windowSurface(options, why);
  if (!surface) return nullptr;
  return std::make_unique<WindowPresenter>(std::move(surface), options, mainQueue, clock,
                                           lifecycle);
}

Screen WindowPresenter::screenOf(const platform::WindowSurface& surface,
                                 const HostOptions& options) {
  const platform::SurfaceSize size = surface.size();
  return Screen{{size.width, size.height}, size.scale, options.safeArea};
}

WindowPresenter::WindowPresenter(std::unique_ptr<platform::WindowSurface> surface,
                                 const HostOptions& options, dispatch::Queue& mainQueue,
                                 dispatch::Clock& clock, AppLifecycle& lifecycle)
    : Presenter(screenOf(*surface, options), mainQueue, clock),
      surface_(std::move(surface)),
      mainQueue_(mainQueue),
      lifecycle_(lifecycle) {
  // A window that shows nothing (a headless driver) keeps what is drawn
  // whole in the canvas, video included.
  if (surface_->prepare(canvas().pixelWidth(), canvas().pixelHeight()) &&
      surface_->showsVideoPlanes()) {
    enableVideoPlanes();
  }
}

WindowPresenter::~WindowPresenter() { frameTimer_.cancel(); }

std::optional<Size> WindowPresenter::displayPixels() const {
  ZV_ASSERT_ON(mainQueue_);
  const auto pixels = surface_->displayPixels();
  if (!pixels) return std::nullopt;
  return Size{double(pixels->width), double(pixels->height)};
}

void WindowPresenter::windowsChanged() {
  ZV_ASSERT_ON(mainQueue_);
  if (windows().empty()) {
    frameTimer_.cancel();
    surface_->setShown(false);
    return;
  }
  if (frameTimer_.valid() && !frameTimer_.isCancelled()) return;
  surface_->setShown(true);
  frameTimer_ = mainQueue_.every(Animator::kFrameInterval, [this] { frame(); });
  frame();
}

void WindowPresenter::frame() {
  ZV_ASSERT_ON(mainQueue_);
  if (surface_->isHostWindow()) {
    // The host's loop owns the event queue and draws between our frames.
    showFrame(renderFrame());
    return;
  }
  surface_->poll([this](const platform::SurfaceEvent& event) { handle(event); });
  const bool drew = renderFrame();
  if (drew || (videoPlanes() && videoPlanes()->changed())) showFrame(drew);
}

void WindowPresenter::showFrame(bool canvasChanged) {
  const Canvas& shown = canvas();
  frame_.pixels = shown.pixels();
  frame_.stride = shown.stride();
  frame_.width = shown.pixelWidth();
  frame_.height = shown.pixelHeight();
  frame_.damage.clear();
  if (canvasChanged) {
    for (const auto& area : lastDamage()) {
      frame_.damage.push_back({area.x, area.y, area.width, area.height});
    }
  }
  frame_.planes.clear();
  if (VideoPlanes* planes = videoPlanes()) {
    for (const VideoPlanes::Plane& plane : planes->planes()) {
      frame_.planes.push_back({plane.owner, plane.picture, plane.pixels.minX(), plane.pixels.minY(),
                               plane.pixels.width(), plane.pixels.height(), plane.fresh});
    }
  }
  const bool presented = surface_->present(frame_);
  // The planes keep no pictures of their own past the frame.
  frame_.planes.clear();
  if (presented && videoPlanes()) videoPlanes()->takeChanges();
}

bool WindowPresenter::handleEvent(const void* nativeEvent) {
  ZV_ASSERT_ON(mainQueue_);
  const auto event = surface_->translate(nativeEvent);
  return event && handle(*event);
}

std::shared_ptr<const void> WindowPresenter::copyEvent(const void* nativeEvent) const {
  return surface_->copyEvent(nativeEvent);
}

bool WindowPresenter::handle(const platform::SurfaceEvent& event) {
  using Kind = platform::SurfaceEvent::Kind;
  switch (event.kind) {
    case Kind::Tap:
      return tap({event.x, event.y});
    case Kind::Back:
    case Kind::Confirm:
    case Kind::Sound:
      performBinding(actionsFor(event.kind));
      return true;
    case Kind::Hidden:
      if (!windows().empty()) lifecycle_.post(AppLifecycle::Event::DidEnterBackground);
      return true;
    case Kind::Background:
      lifecycle_.post(AppLifecycle::Event::DidEnterBackground);
      return true;
    case Kind::Shown:
    case Kind::Foreground:
      lifecycle_.post(AppLifecycle::Event::WillEnterForeground);
      return true;
    case Kind::Exposed:
      showFrame(renderFrame(true));
      return true;
    case Kind::None:
      return true;
  }
  return false;
}

void WindowPresenter::performBinding(const std::vector<ScreenAction>& actions) {
  for (ScreenAction action : actions) {
    if (performAction(action)) return;
  }
}

}  // namespace zivora::ui
