#include "ui/SdlPresenter.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

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

// Canvas tiles are this many pixels square: controls fill a few of them,
// and the video between them is left alone.
constexpr int kTileSize = 64;
constexpr int kGlRenderer = 0x1F01;

// SDL's conversion that matches a picture's, if any.
std::optional<SDL_YUV_CONVERSION_MODE> conversionOf(const media::YuvPicture& picture) {
  if (picture.matrix() == media::YuvMatrix::Bt601) {
    return picture.fullRange() ? SDL_YUV_CONVERSION_JPEG : SDL_YUV_CONVERSION_BT601;
  }
  if (picture.matrix() == media::YuvMatrix::Bt709 && !picture.fullRange()) {
    return SDL_YUV_CONVERSION_BT709;
  }
  return std::nullopt;
}

// Premultiplied ARGB (cairo's) to the straight alpha SDL blends with.
void unpremultiply(const std::uint32_t* from, std::uint32_t* to, int count) {
  for (int i = 0; i < count; ++i) {
    const std::uint32_t pixel = from[i];
    const std::uint32_t alpha = pixel >> 24;
    if (alpha == 255 || alpha == 0) {
      to[i] = pixel;
      continue;
    }
    const auto undo = [&](int shift) {
      return (((pixel >> shift) & 0xFF) * 255 + alpha / 2) / alpha << shift;
    };
    to[i] = (alpha << 24) | undo(16) | undo(8) | undo(0);
  }
}

// A device node a GPU driver renders through (Mesa's DRM ones, NVIDIA's).
bool hasGpuDevice() {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/dev/dri", error)) {
    if (entry.path().filename().string().starts_with("render")) return true;
  }
  return std::filesystem::exists("/dev/nvidia0", error);
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
    renderer_ = hostWindow_ ? SDL_CreateRenderer(window_, -1, 0) : createRenderer(window_);
    ownsRenderer_ = renderer_ != nullptr;
  }
  if (renderer_) {
    texture_ = SDL_CreateTexture(renderer_, SDL_PIXELFORMAT_ARGB8888, SDL_TEXTUREACCESS_STREAMING,
                                 canvas().pixelWidth(), canvas().pixelHeight());
  }
  if (!texture_) {
    ZVLog::LogWarning("[SdlPresenter] No renderer: {}", SDL_GetError());
    return;
  }
  SDL_RendererInfo info{};
  SDL_GetRendererInfo(renderer_, &info);
  for (Uint32 i = 0; i < info.num_texture_formats; ++i) {
    nativeYuv_ = nativeYuv_ || info.texture_formats[i] == SDL_PIXELFORMAT_IYUV;
  }
  if (SDL_GetWindowPixelFormat(window_) == SDL_PIXELFORMAT_RGB888) {
    pictureFormat_ = SDL_PIXELFORMAT_RGB888;
  }
  tileColumns_ = (canvas().pixelWidth() + kTileSize - 1) / kTileSize;
  const int rows = (canvas().pixelHeight() + kTileSize - 1) / kTileSize;
  tiles_.assign(static_cast<std::size_t>(tileColumns_) * rows, Tile::Clear);
  // SDL's dummy driver shows nothing: what a headless run draws stays whole
  // in the canvas, video included.
  const char* driver = SDL_GetCurrentVideoDriver();
  if (!driver || std::strcmp(driver, "dummy") != 0) enableVideoPlanes();
}

SDL_Renderer* SdlPresenter::createRenderer(SDL_Window* window) {
  // A renderer the host or the user chose stays.
  if (SDL_GetHint(SDL_HINT_RENDER_DRIVER)) return SDL_CreateRenderer(window, -1, 0);
  // Without a GPU device OpenGL can only rasterise on the CPU: it is not
  // even tried, as loading Mesa's driver alone costs a tenth of a second.
  if (hasGpuDevice()) {
    SDL_Renderer* renderer = SDL_CreateRenderer(window, -1, 0);
    if (!renderer || !rasterisesInSoftware(renderer)) return renderer;
    SDL_DestroyRenderer(renderer);
  }
  // The window's own framebuffer, not one drawn through OpenGL again.
  if (!SDL_GetHint(SDL_HINT_FRAMEBUFFER_ACCELERATION)) {
    SDL_SetHint(SDL_HINT_FRAMEBUFFER_ACCELERATION, "0");
  }
  SDL_Renderer* renderer = SDL_CreateRenderer(window, -1, SDL_RENDERER_SOFTWARE);
  return renderer ? renderer : SDL_CreateRenderer(window, -1, 0);
}

bool SdlPresenter::rasterisesInSoftware(SDL_Renderer* renderer) {
  SDL_RendererInfo info{};
  if (SDL_GetRendererInfo(renderer, &info) != 0 || !info.name ||
      std::strncmp(info.name, "opengl", 6) != 0) {
    return false;
  }
  // The OpenGL renderer leaves its context current.
  using GetString = const unsigned char* (*)(unsigned);
  auto getString = reinterpret_cast<GetString>(SDL_GL_GetProcAddress("glGetString"));
  const auto* name = getString ? reinterpret_cast<const char*>(getString(kGlRenderer)) : nullptr;
  if (!name) return false;
  ZVLog::LogDebug("[SdlPresenter] OpenGL renderer: {}", name);
  return std::strstr(name, "llvmpipe") || std::strstr(name, "softpipe") ||
         std::strstr(name, "Software Rasterizer") || std::strstr(name, "swrast");
}

SdlPresenter::~SdlPresenter() {
  frameTimer_.cancel();
  for (auto& [id, controller] : controllers_) SDL_GameControllerClose(controller);
  for (auto& [owner, video] : videoTextures_) SDL_DestroyTexture(video.texture);
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
    showFrame(renderFrame());
    return;
  }
  SDL_Event event;
  while (SDL_PollEvent(&event)) handleEvent(event);
  const bool drew = renderFrame();
  if (drew || (videoPlanes() && videoPlanes()->changed())) showFrame(drew);
}

void SdlPresenter::showFrame(bool canvasChanged) {
  if (!texture_) return;
  if (canvasChanged) {
    for (const auto& area : lastDamage()) uploadCanvas(area);
  }
  int outputWidth = 0, outputHeight = 0;
  SDL_GetRendererOutputSize(renderer_, &outputWidth, &outputHeight);
  const double scaleX = canvas().pixelWidth() > 0 ? double(outputWidth) / canvas().pixelWidth() : 1;
  const double scaleY =
      canvas().pixelHeight() > 0 ? double(outputHeight) / canvas().pixelHeight() : 1;
  SDL_SetRenderDrawColor(renderer_, 0, 0, 0, 255);
  if (!planesCoverOutput(outputWidth, outputHeight, scaleX, scaleY)) SDL_RenderClear(renderer_);
  drawPlanes(scaleX, scaleY);
  drawCanvas(scaleX, scaleY);
  SDL_RenderPresent(renderer_);
  if (videoPlanes()) videoPlanes()->takeChanges();
}

bool SdlPresenter::planesCoverOutput(int width, int height, double scaleX, double scaleY) const {
  if (!videoPlanes()) return false;
  const auto& planes = videoPlanes()->planes();
  return std::any_of(planes.begin(), planes.end(), [&](const VideoPlanes::Plane& plane) {
    return plane.pixels.minX() * scaleX <= 0 && plane.pixels.minY() * scaleY <= 0 &&
           plane.pixels.maxX() * scaleX >= width && plane.pixels.maxY() * scaleY >= height;
  });
}

void SdlPresenter::uploadCanvas(const cairo_rectangle_int_t& damage) {
  const cairo_rectangle_int_t area = PixelRegion::intersection(damage, canvas().pixelBounds());
  if (PixelRegion::isEmpty(area)) return;
  const SDL_Rect rect{area.x, area.y, area.width, area.height};
  void* locked = nullptr;
  int pitch = 0;
  if (SDL_LockTexture(texture_, &rect, &locked, &pitch) != 0) return;
  const unsigned char* pixels = canvas().pixels();
  const int stride = canvas().stride();
  for (int y = 0; y < area.height; ++y) {
    const auto* from = reinterpret_cast<const std::uint32_t*>(
                           pixels + static_cast<std::ptrdiff_t>(area.y + y) * stride) +
                       area.x;
    unpremultiply(from,
                  reinterpret_cast<std::uint32_t*>(static_cast<unsigned char*>(locked) +
                                                   static_cast<std::ptrdiff_t>(y) * pitch),
                  area.width);
  }
  SDL_UnlockTexture(texture_);

  // Every tile the area meets is read whole again.
  for (int row = area.y / kTileSize; row * kTileSize < area.y + area.height; ++row) {
    for (int column = area.x / kTileSize; column * kTileSize < area.x + area.width; ++column) {
      const int right = std::min((column + 1) * kTileSize, canvas().pixelWidth());
      const int bottom = std::min((row + 1) * kTileSize, canvas().pixelHeight());
      bool opaque = true, clear = true;
      for (int y = row * kTileSize; y < bottom && (opaque || clear); ++y) {
        const auto* line = reinterpret_cast<const std::uint32_t*>(
            pixels + static_cast<std::ptrdiff_t>(y) * stride);
        for (int x = column * kTileSize; x < right; ++x) {
          const std::uint32_t alpha = line[x] >> 24;
          opaque = opaque && alpha == 255;
          clear = clear && alpha == 0;
        }
      }
      tiles_[static_cast<std::size_t>(row) * tileColumns_ + column] = clear    ? Tile::Clear
                                                                      : opaque ? Tile::Opaque
                                                                               : Tile::Translucent;
    }
  }
}

void SdlPresenter::drawCanvas(double scaleX, double scaleY) {
  // Runs of like tiles in a row go in one copy: opaque ones copied, the
  // others blended over the video, clear ones not at all.
  const int rows = tileColumns_ > 0 ? static_cast<int>(tiles_.size()) / tileColumns_ : 0;
  for (int row = 0; row < rows; ++row) {
    const Tile* line = tiles_.data() + static_cast<std::ptrdiff_t>(row) * tileColumns_;
    for (int column = 0; column < tileColumns_;) {
      const Tile kind = line[column];
      int end = column + 1;
      while (end < tileColumns_ && line[end] == kind) ++end;
      if (kind != Tile::Clear) {
        const SDL_Rect source{
            column * kTileSize, row * kTileSize,
            std::min(end * kTileSize, canvas().pixelWidth()) - column * kTileSize,
            std::min((row + 1) * kTileSize, canvas().pixelHeight()) - row * kTileSize};
        const SDL_FRect target{float(source.x * scaleX), float(source.y * scaleY),
                               float(source.w * scaleX), float(source.h * scaleY)};
        SDL_SetTextureBlendMode(texture_,
                                kind == Tile::Opaque ? SDL_BLENDMODE_NONE : SDL_BLENDMODE_BLEND);
        SDL_RenderCopyF(renderer_, texture_, &source, &target);
      }
      column = end;
    }
  }
}

void SdlPresenter::drawPlanes(double scaleX, double scaleY) {
  VideoPlanes* planes = videoPlanes();
  if (!planes) return;
  // Textures of planes that have gone go too.
  for (auto it = videoTextures_.begin(); it != videoTextures_.end();) {
    const bool shown = std::any_of(planes->planes().begin(), planes->planes().end(),
                                   [&](const auto& plane) { return plane.owner == it->first; });
    if (shown) {
      ++it;
    } else {
      SDL_DestroyTexture(it->second.texture);
      it = videoTextures_.erase(it);
    }
  }
  for (const VideoPlanes::Plane& plane : planes->planes()) {
    SDL_Texture* texture = videoTexture(plane);
    if (!texture) continue;
    if (plane.fresh) uploadPicture(texture, *plane.picture);
    const SDL_FRect target{float(plane.pixels.minX() * scaleX), float(plane.pixels.minY() * scaleY),
                           float(plane.pixels.width() * scaleX),
                           float(plane.pixels.height() * scaleY)};
    SDL_RenderCopyF(renderer_, texture, nullptr, &target);
  }
}

SDL_Texture* SdlPresenter::videoTexture(const VideoPlanes::Plane& plane) {
  const media::YuvPicture& picture = *plane.picture;
  VideoTexture& video = videoTextures_[plane.owner];
  if (video.texture && video.width == picture.width() && video.height == picture.height()) {
    return video.texture;
  }
  if (video.texture) SDL_DestroyTexture(video.texture);
  // The renderer's own conversion when it has the picture's; else the
  // picture is converted into an ARGB texture as it is uploaded.
  const auto conversion = nativeYuv_ ? conversionOf(picture) : std::nullopt;
  const SDL_YUV_CONVERSION_MODE before = SDL_GetYUVConversionMode();
  if (conversion) SDL_SetYUVConversionMode(*conversion);
  video.texture =
      SDL_CreateTexture(renderer_, conversion ? Uint32(SDL_PIXELFORMAT_IYUV) : pictureFormat_,
                        SDL_TEXTUREACCESS_STREAMING, picture.width(), picture.height());
  SDL_SetYUVConversionMode(before);
  if (!video.texture && pictureFormat_ != SDL_PIXELFORMAT_ARGB8888) {
    video.texture =
        SDL_CreateTexture(renderer_, SDL_PIXELFORMAT_ARGB8888, SDL_TEXTUREACCESS_STREAMING,
                          picture.width(), picture.height());
  }
  video.width = picture.width();
  video.height = picture.height();
  if (!video.texture) {
    ZVLog::LogWarning("[SdlPresenter] No video texture: {}", SDL_GetError());
    videoTextures_.erase(plane.owner);
    return nullptr;
  }
  SDL_SetTextureScaleMode(video.texture, SDL_ScaleModeLinear);
  // A new texture holds nothing yet: an old picture goes in now (a new one
  // is uploaded anyway).
  if (!plane.fresh) uploadPicture(video.texture, picture);
  return video.texture;
}

void SdlPresenter::uploadPicture(SDL_Texture* texture, const media::YuvPicture& picture) {
  Uint32 format = 0;
  SDL_QueryTexture(texture, &format, nullptr, nullptr, nullptr);
  if (format == SDL_PIXELFORMAT_IYUV) {
    SDL_UpdateYUVTexture(texture, nullptr, picture.luma().data, picture.luma().stride,
                         picture.blue().data, picture.blue().stride, picture.red().data,
                         picture.red().stride);
    return;
  }
  void* pixels = nullptr;
  int pitch = 0;
  if (SDL_LockTexture(texture, nullptr, &pixels, &pitch) != 0) return;
  picture.convert(static_cast<std::uint8_t*>(pixels), pitch);
  SDL_UnlockTexture(texture);
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
      showFrame(renderFrame(true));
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
