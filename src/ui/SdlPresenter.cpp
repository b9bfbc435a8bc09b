#include "ui/SdlPresenter.h"

#include <algorithm>

#include "platform/dispatch/QueueAssert.h"
#include "util/ZVLog.h"

namespace zivora::ui {
namespace {

constexpr Uint32 kSubsystems = SDL_INIT_VIDEO | SDL_INIT_GAMECONTROLLER;

// Keys and controller buttons, each standing for a tap on a control. Escape
// (or B) skips a video once skipping is allowed and closes the post-video
// screen; Return or Space (or A) is the call to action; M (or Y) switches
// the sound.
std::vector<ScreenAction> actionsForKey(SDL_Keycode key) {
  switch (key) {
    case SDLK_ESCAPE:
    case SDLK_BACKSPACE:
    case SDLK_AC_BACK:
      return {ScreenAction::Skip, ScreenAction::Close};
    case SDLK_RETURN:
    case SDLK_KP_ENTER:
    case SDLK_SPACE:
      return {ScreenAction::CallToAction};
    case SDLK_m:
      return {ScreenAction::Sound};
    default:
      return {};
  }
}

std::vector<ScreenAction> actionsForButton(Uint8 button) {
  switch (button) {
    case SDL_CONTROLLER_BUTTON_B:
    case SDL_CONTROLLER_BUTTON_BACK:
      return {ScreenAction::Skip, ScreenAction::Close};
    case SDL_CONTROLLER_BUTTON_A:
    case SDL_CONTROLLER_BUTTON_START:
      return {ScreenAction::CallToAction};
    case SDL_CONTROLLER_BUTTON_Y:
      return {ScreenAction::Sound};
    default:
      return {};
  }
}

}  // namespace

std::unique_ptr<SdlPresenter> SdlPresenter::create(const HostOptions& options,
                                                   dispatch::Queue& mainQueue,
                                                   dispatch::Clock& clock, AppLifecycle& lifecycle,
                                                   std::string& why) {
  ZV_ASSERT_ON(mainQueue);
  // The ad must not switch the screensaver off for good; the video screen
  // disables it itself while it plays.
  SDL_SetHint(SDL_HINT_VIDEO_ALLOW_SCREENSAVER, "1");
  if (SDL_InitSubSystem(kSubsystems) != 0) {
    why = std::string("SDL video did not start: ") + SDL_GetError();
    return nullptr;
  }
  if (options.hostWindow) {
    auto* window = static_cast<SDL_Window*>(options.hostWindow);
    return std::unique_ptr<SdlPresenter>(
        new SdlPresenter(screenOf(window, options), window, true, mainQueue, clock, lifecycle));
  }
  const bool sized = options.screenWidth > 0 && options.screenHeight > 0;
  Uint32 flags = SDL_WINDOW_HIDDEN | SDL_WINDOW_ALLOW_HIGHDPI;
  if (!sized) flags |= SDL_WINDOW_FULLSCREEN_DESKTOP;
  // The full-screen window starts at the display's own size: without a
  // window manager (a kiosk, a bare X server) nobody resizes it afterwards.
  SDL_DisplayMode desktop{};
  const bool known = SDL_GetDesktopDisplayMode(0, &desktop) == 0 && desktop.w > 0 && desktop.h > 0;
  const int width = sized ? options.screenWidth : known ? desktop.w : 1280;
  const int height = sized ? options.screenHeight : known ? desktop.h : 720;
  SDL_Window* window =
      SDL_CreateWindow(options.applicationName.empty() ? "Zivora" : options.applicationName.c_str(),
                       SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED, width, height, flags);
  if (!window) {
    why = std::string("SDL made no window: ") + SDL_GetError();
    SDL_QuitSubSystem(kSubsystems);
    return nullptr;
  }
  return std::unique_ptr<SdlPresenter>(
      new SdlPresenter(screenOf(window, options), window, false, mainQueue, clock, lifecycle));
}

bool SdlPresenter::videoStartedElsewhere() { return SDL_WasInit(SDL_INIT_VIDEO) != 0; }

std::optional<Size> SdlPresenter::displayPixels() const {
  ZV_ASSERT_ON(mainQueue_);
  SDL_DisplayMode mode{};
  const int index = std::max(0, SDL_GetWindowDisplayIndex(window_));
  if (SDL_GetDesktopDisplayMode(index, &mode) != 0 || mode.w <= 0 || mode.h <= 0)
    return std::nullopt;
  return Size{double(mode.w), double(mode.h)};
}

Screen SdlPresenter::screenOf(SDL_Window* window, const HostOptions& options) {
  int width = 0, height = 0, drawableWidth = 0;
  SDL_GetWindowSize(window, &width, &height);
  SDL_GL_GetDrawableSize(window, &drawableWidth, nullptr);
  const double scale = width > 0 && drawableWidth > 0 ? double(drawableWidth) / width : 1.0;
  return Screen{{double(width), double(height)}, scale, options.safeArea};
}

SdlPresenter::SdlPresenter(Screen screen, SDL_Window* window, bool hostWindow,
                           dispatch::Queue& mainQueue, dispatch::Clock& clock,
                           AppLifecycle& lifecycle)
    : Presenter(screen, mainQueue, clock),
      window_(window),
      hostWindow_(hostWindow),
      mainQueue_(mainQueue),
      lifecycle_(lifecycle) {
  renderer_ = hostWindow_ ? SDL_GetRenderer(window_) : nullptr;
  if (!renderer_) {
    renderer_ = SDL_CreateRenderer(window_, -1, 0);
    ownsRenderer_ = renderer_ != nullptr;
  }
  if (renderer_) {
    texture_ = SDL_CreateTexture(renderer_, SDL_PIXELFORMAT_ARGB8888, SDL_TEXTUREACCESS_STREAMING,
                                 canvas().pixelWidth(), canvas().pixelHeight());
  }
  if (!texture_) ZVLog::LogWarning("[SdlPresenter] No renderer: {}", SDL_GetError());
}

SdlPresenter::~SdlPresenter() {
  frameTimer_.cancel();
  for (auto& [id, controller] : controllers_) SDL_GameControllerClose(controller);
  if (texture_) SDL_DestroyTexture(texture_);
  if (ownsRenderer_) SDL_DestroyRenderer(renderer_);
  if (!hostWindow_) SDL_DestroyWindow(window_);
  SDL_QuitSubSystem(kSubsystems);
}

void SdlPresenter::windowsChanged() {
  ZV_ASSERT_ON(mainQueue_);
  if (windows().empty()) {
    frameTimer_.cancel();
    if (!hostWindow_) SDL_HideWindow(window_);
    return;
  }
  if (frameTimer_.valid() && !frameTimer_.isCancelled()) return;
  if (!hostWindow_) {
    // Focus changes of our own window's earlier life are not the host's.
    SDL_FlushEvent(SDL_WINDOWEVENT);
    SDL_ShowWindow(window_);
    SDL_RaiseWindow(window_);
  }
  frameTimer_ = mainQueue_.every(Animator::kFrameInterval, [this] { frame(); });
  frame();
}

void SdlPresenter::frame() {
  ZV_ASSERT_ON(mainQueue_);
  if (hostWindow_) {
    // The host's loop owns the event queue and draws between our frames.
    renderFrame();
    showFrame();
    return;
  }
  SDL_Event event;
  while (SDL_PollEvent(&event)) handleEvent(event);
  if (renderFrame()) showFrame();
}

void SdlPresenter::showFrame() {
  if (!texture_) return;
  SDL_UpdateTexture(texture_, nullptr, canvas().pixels(), canvas().stride());
  SDL_RenderClear(renderer_);
  SDL_RenderCopy(renderer_, texture_, nullptr, nullptr);
  SDL_RenderPresent(renderer_);
}

bool SdlPresenter::handleEvent(const SDL_Event& event) {
  ZV_ASSERT_ON(mainQueue_);
  switch (event.type) {
    case SDL_MOUSEBUTTONUP:
      // Touches arrive as finger events too; their mouse copies are skipped.
      if (event.button.which == SDL_TOUCH_MOUSEID || event.button.button != SDL_BUTTON_LEFT) {
        return false;
      }
      return tap({double(event.button.x), double(event.button.y)});
    case SDL_FINGERUP:
      return tap({event.tfinger.x * screen().size.width, event.tfinger.y * screen().size.height});
    case SDL_KEYDOWN:
      if (event.key.repeat) return false;
      performBinding(actionsForKey(event.key.keysym.sym));
      return true;
    case SDL_CONTROLLERBUTTONDOWN:
      performBinding(actionsForButton(event.cbutton.button));
      return true;
    case SDL_CONTROLLERDEVICEADDED:
      openController(event.cdevice.which);
      return true;
    case SDL_CONTROLLERDEVICEREMOVED:
      if (auto found = controllers_.find(event.cdevice.which); found != controllers_.end()) {
        SDL_GameControllerClose(found->second);
        controllers_.erase(found);
      }
      return true;
    case SDL_WINDOWEVENT:
      handleWindowEvent(event.window);
      return true;
    case SDL_APP_DIDENTERBACKGROUND:
      lifecycle_.post(AppLifecycle::Event::DidEnterBackground);
      return true;
    case SDL_APP_WILLENTERFOREGROUND:
      lifecycle_.post(AppLifecycle::Event::WillEnterForeground);
      return true;
    default:
      return false;
  }
}

void SdlPresenter::handleWindowEvent(const SDL_WindowEvent& event) {
  switch (event.event) {
    case SDL_WINDOWEVENT_MINIMIZED:
    case SDL_WINDOWEVENT_HIDDEN:
    case SDL_WINDOWEVENT_FOCUS_LOST:
      if (!windows().empty()) lifecycle_.post(AppLifecycle::Event::DidEnterBackground);
      break;
    case SDL_WINDOWEVENT_RESTORED:
    case SDL_WINDOWEVENT_SHOWN:
    case SDL_WINDOWEVENT_FOCUS_GAINED:
      lifecycle_.post(AppLifecycle::Event::WillEnterForeground);
      break;
    case SDL_WINDOWEVENT_EXPOSED:
      renderFrame(true);
      showFrame();
      break;
    default:
      break;
  }
}

void SdlPresenter::performBinding(const std::vector<ScreenAction>& actions) {
  for (ScreenAction action : actions) {
    if (performAction(action)) return;
  }
}

void SdlPresenter::openController(int deviceIndex) {
  if (!SDL_IsGameController(deviceIndex)) return;
  if (SDL_GameController* controller = SDL_GameControllerOpen(deviceIndex)) {
    controllers_[SDL_JoystickInstanceID(SDL_GameControllerGetJoystick(controller))] = controller;
  }
}

}  // namespace zivora::ui
