#include "platform/linux/SdlWindow.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "util/ZVLog.h"

namespace zivora::platform {
namespace {

constexpr Uint32 kSubsystems = SDL_INIT_VIDEO | SDL_INIT_GAMECONTROLLER;

// Keys and controller buttons, each standing for a control: Escape (or B)
// goes back, Return or Space (or A) confirms, M (or Y) switches the sound.
std::optional<SurfaceEvent::Kind> kindOfKey(SDL_Keycode key) {
  switch (key) {
    case SDLK_ESCAPE:
    case SDLK_BACKSPACE:
    case SDLK_AC_BACK:
      return SurfaceEvent::Kind::Back;
    case SDLK_RETURN:
    case SDLK_KP_ENTER:
    case SDLK_SPACE:
      return SurfaceEvent::Kind::Confirm;
    case SDLK_m:
      return SurfaceEvent::Kind::Sound;
    default:
      return std::nullopt;
  }
}

std::optional<SurfaceEvent::Kind> kindOfButton(Uint8 button) {
  switch (button) {
    case SDL_CONTROLLER_BUTTON_B:
    case SDL_CONTROLLER_BUTTON_BACK:
      return SurfaceEvent::Kind::Back;
    case SDL_CONTROLLER_BUTTON_A:
    case SDL_CONTROLLER_BUTTON_START:
      return SurfaceEvent::Kind::Confirm;
    case SDL_CONTROLLER_BUTTON_Y:
      return SurfaceEvent::Kind::Sound;
    default:
      return std::nullopt;
  }
}

SurfaceEvent eventOf(SurfaceEvent::Kind kind) { return SurfaceEvent{.kind = kind}; }

SurfaceEvent eventOf(std::optional<SurfaceEvent::Kind> kind) {
  return eventOf(kind.value_or(SurfaceEvent::Kind::None));
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

// The window's size in points and the drawable's pixels per point.
SurfaceSize sizeOf(SDL_Window* window) {
  int width = 0, height = 0, drawableWidth = 0;
  SDL_GetWindowSize(window, &width, &height);
  SDL_GL_GetDrawableSize(window, &drawableWidth, nullptr);
  const double scale = width > 0 && drawableWidth > 0 ? double(drawableWidth) / width : 1.0;
  return SurfaceSize{double(width), double(height), scale};
}

}  // namespace

std::unique_ptr<SdlWindow> SdlWindow::open(const HostOptions& options, std::string& why) {
  // The ad must not switch the screensaver off for good; the video screen
  // disables it itself while it plays.
  SDL_SetHint(SDL_HINT_VIDEO_ALLOW_SCREENSAVER, "1");
  if (SDL_InitSubSystem(kSubsystems) != 0) {
    why = std::string("SDL video did not start: ") + SDL_GetError();
    return nullptr;
  }
  if (options.hostWindow) {
    return std::unique_ptr<SdlWindow>(
        new SdlWindow(static_cast<SDL_Window*>(options.hostWindow), true));
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
  return std::unique_ptr<SdlWindow>(new SdlWindow(window, false));
}

bool SdlWindow::videoStartedElsewhere() { return SDL_WasInit(SDL_INIT_VIDEO) != 0; }

SdlWindow::SdlWindow(SDL_Window* window, bool hostWindow)
    : window_(window), hostWindow_(hostWindow), size_(sizeOf(window)) {
  renderer_ = hostWindow_ ? SDL_GetRenderer(window_) : nullptr;
  if (!renderer_) {
    renderer_ = hostWindow_ ? SDL_CreateRenderer(window_, -1, 0) : createRenderer(window_);
    ownsRenderer_ = renderer_ != nullptr;
  }
}

SdlWindow::~SdlWindow() {
  for (auto& [id, controller] : controllers_) SDL_GameControllerClose(controller);
  for (auto& [owner, video] : videoTextures_) SDL_DestroyTexture(video.texture);
  if (texture_) SDL_DestroyTexture(texture_);
  if (ownsRenderer_) SDL_DestroyRenderer(renderer_);
  if (!hostWindow_) SDL_DestroyWindow(window_);
  SDL_QuitSubSystem(kSubsystems);
}

std::optional<PixelSize> SdlWindow::displayPixels() const {
  SDL_DisplayMode mode{};
  const int index = std::max(0, SDL_GetWindowDisplayIndex(window_));
  if (SDL_GetDesktopDisplayMode(index, &mode) != 0 || mode.w <= 0 || mode.h <= 0)
    return std::nullopt;
  return PixelSize{mode.w, mode.h};
}

bool SdlWindow::showsVideoPlanes() const {
  const char* driver = SDL_GetCurrentVideoDriver();
  return !driver || std::strcmp(driver, "dummy") != 0;
}

SDL_Renderer* SdlWindow::createRenderer(SDL_Window* window) {
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

bool SdlWindow::rasterisesInSoftware(SDL_Renderer* renderer) {
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
  ZVLog::LogDebug("[SdlWindow] OpenGL renderer: {}", name);
  return std::strstr(name, "llvmpipe") || std::strstr(name, "softpipe") ||
         std::strstr(name, "Software Rasterizer") || std::strstr(name, "swrast");
}

bool SdlWindow::prepare(int canvasWidth, int canvasHeight) {
  if (renderer_) {
    texture_ = SDL_CreateTexture(renderer_, SDL_PIXELFORMAT_ARGB8888, SDL_TEXTUREACCESS_STREAMING,
                                 canvasWidth, canvasHeight);
  }
  if (!texture_) {
    ZVLog::LogWarning("[SdlWindow] No renderer: {}", SDL_GetError());
    return false;
  }
  canvasWidth_ = canvasWidth;
  canvasHeight_ = canvasHeight;
  SDL_RendererInfo info{};
  SDL_GetRendererInfo(renderer_, &info);
  for (Uint32 i = 0; i < info.num_texture_formats; ++i) {
    nativeYuv_ = nativeYuv_ || info.texture_formats[i] == SDL_PIXELFORMAT_IYUV;
  }
  if (SDL_GetWindowPixelFormat(window_) == SDL_PIXELFORMAT_RGB888) {
    pictureFormat_ = SDL_PIXELFORMAT_RGB888;
  }
  tileColumns_ = (canvasWidth + kTileSize - 1) / kTileSize;
  const int rows = (canvasHeight + kTileSize - 1) / kTileSize;
  tiles_.assign(static_cast<std::size_t>(tileColumns_) * rows, Tile::Clear);
  return true;
}

void SdlWindow::setShown(bool shown) {
  if (hostWindow_) return;
  if (!shown) {
    SDL_HideWindow(window_);
    return;
  }
  // Focus changes of our own window's earlier life are not the host's.
  SDL_FlushEvent(SDL_WINDOWEVENT);
  SDL_ShowWindow(window_);
  SDL_RaiseWindow(window_);
}

void SdlWindow::poll(const std::function<void(const SurfaceEvent&)>& handle) {
  SDL_Event event;
  while (SDL_PollEvent(&event)) {
    if (auto translated = translate(&event)) handle(*translated);
  }
}

std::shared_ptr<const void> SdlWindow::copyEvent(const void* nativeEvent) const {
  return std::make_shared<const SDL_Event>(*static_cast<const SDL_Event*>(nativeEvent));
}

std::optional<SurfaceEvent> SdlWindow::translate(const void* nativeEvent) {
  const SDL_Event& event = *static_cast<const SDL_Event*>(nativeEvent);
  switch (event.type) {
    case SDL_MOUSEBUTTONUP:
      // Touches arrive as finger events too; their mouse copies are skipped.
      if (event.button.which == SDL_TOUCH_MOUSEID || event.button.button != SDL_BUTTON_LEFT) {
        return std::nullopt;
      }
      return SurfaceEvent{SurfaceEvent::Kind::Tap, double(event.button.x), double(event.button.y)};
    case SDL_FINGERUP:
      return SurfaceEvent{SurfaceEvent::Kind::Tap, event.tfinger.x * size_.width,
                          event.tfinger.y * size_.height};
    case SDL_KEYDOWN:
      if (event.key.repeat) return std::nullopt;
      return eventOf(kindOfKey(event.key.keysym.sym));
    case SDL_CONTROLLERBUTTONDOWN:
      return eventOf(kindOfButton(event.cbutton.button));
    case SDL_CONTROLLERDEVICEADDED:
      openController(event.cdevice.which);
      return eventOf(SurfaceEvent::Kind::None);
    case SDL_CONTROLLERDEVICEREMOVED:
      if (auto found = controllers_.find(event.cdevice.which); found != controllers_.end()) {
        SDL_GameControllerClose(found->second);
        controllers_.erase(found);
      }
      return eventOf(SurfaceEvent::Kind::None);
    case SDL_WINDOWEVENT:
      return translateWindowEvent(event.window);
    case SDL_APP_DIDENTERBACKGROUND:
      return eventOf(SurfaceEvent::Kind::Background);
    case SDL_APP_WILLENTERFOREGROUND:
      return eventOf(SurfaceEvent::Kind::Foreground);
    default:
      return std::nullopt;
  }
}

std::optional<SurfaceEvent> SdlWindow::translateWindowEvent(const SDL_WindowEvent& event) const {
  switch (event.event) {
    case SDL_WINDOWEVENT_MINIMIZED:
    case SDL_WINDOWEVENT_HIDDEN:
    case SDL_WINDOWEVENT_FOCUS_LOST:
      return eventOf(SurfaceEvent::Kind::Hidden);
    case SDL_WINDOWEVENT_RESTORED:
    case SDL_WINDOWEVENT_SHOWN:
    case SDL_WINDOWEVENT_FOCUS_GAINED:
      return eventOf(SurfaceEvent::Kind::Shown);
    case SDL_WINDOWEVENT_EXPOSED:
      return eventOf(SurfaceEvent::Kind::Exposed);
    default:
      // Still the window's: a host acts on none of them while an ad shows.
      return eventOf(SurfaceEvent::Kind::None);
  }
}

void SdlWindow::openController(int deviceIndex) {
  if (!SDL_IsGameController(deviceIndex)) return;
  if (SDL_GameController* controller = SDL_GameControllerOpen(deviceIndex)) {
    controllers_[SDL_JoystickInstanceID(SDL_GameControllerGetJoystick(controller))] = controller;
  }
}

bool SdlWindow::present(const SurfaceFrame& frame) {
  if (!texture_) return false;
  for (const PixelArea& area : frame.damage) uploadCanvas(frame, area);
  int outputWidth = 0, outputHeight = 0;
  SDL_GetRendererOutputSize(renderer_, &outputWidth, &outputHeight);
  const double scaleX = canvasWidth_ > 0 ? double(outputWidth) / canvasWidth_ : 1;
  const double scaleY = canvasHeight_ > 0 ? double(outputHeight) / canvasHeight_ : 1;
  SDL_SetRenderDrawColor(renderer_, 0, 0, 0, 255);
  if (!planesCoverOutput(frame.planes, outputWidth, outputHeight, scaleX, scaleY)) {
    SDL_RenderClear(renderer_);
  }
  drawPlanes(frame.planes, scaleX, scaleY);
  drawCanvas(scaleX, scaleY);
  SDL_RenderPresent(renderer_);
  return true;
}

bool SdlWindow::planesCoverOutput(const std::vector<SurfacePlane>& planes, int width, int height,
                                  double scaleX, double scaleY) {
  return std::any_of(planes.begin(), planes.end(), [&](const SurfacePlane& plane) {
    return plane.x * scaleX <= 0 && plane.y * scaleY <= 0 &&
           (plane.x + plane.width) * scaleX >= width && (plane.y + plane.height) * scaleY >= height;
  });
}

void SdlWindow::uploadCanvas(const SurfaceFrame& frame, const PixelArea& damage) {
  // The damage within the canvas (and the texture made for it).
  const int left = std::max(damage.x, 0);
  const int top = std::max(damage.y, 0);
  const int right = std::min({damage.x + damage.width, frame.width, canvasWidth_});
  const int bottom = std::min({damage.y + damage.height, frame.height, canvasHeight_});
  if (right <= left || bottom <= top) return;
  const SDL_Rect area{left, top, right - left, bottom - top};
  void* locked = nullptr;
  int pitch = 0;
  if (SDL_LockTexture(texture_, &area, &locked, &pitch) != 0) return;
  const unsigned char* pixels = frame.pixels;
  const int stride = frame.stride;
  for (int y = 0; y < area.h; ++y) {
    const auto* from = reinterpret_cast<const std::uint32_t*>(
                           pixels + static_cast<std::ptrdiff_t>(area.y + y) * stride) +
                       area.x;
    unpremultiply(from,
                  reinterpret_cast<std::uint32_t*>(static_cast<unsigned char*>(locked) +
                                                   static_cast<std::ptrdiff_t>(y) * pitch),
                  area.w);
  }
  SDL_UnlockTexture(texture_);

  // Every tile the area meets is read whole again.
  for (int row = area.y / kTileSize; row * kTileSize < area.y + area.h; ++row) {
    for (int column = area.x / kTileSize; column * kTileSize < area.x + area.w; ++column) {
      const int tileRight = std::min((column + 1) * kTileSize, canvasWidth_);
      const int tileBottom = std::min((row + 1) * kTileSize, canvasHeight_);
      bool opaque = true, clear = true;
      for (int y = row * kTileSize; y < tileBottom && (opaque || clear); ++y) {
        const auto* line = reinterpret_cast<const std::uint32_t*>(
            pixels + static_cast<std::ptrdiff_t>(y) * stride);
        for (int x = column * kTileSize; x < tileRight; ++x) {
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

void SdlWindow::drawCanvas(double scaleX, double scaleY) {
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
        const SDL_Rect source{column * kTileSize, row * kTileSize,
                              std::min(end * kTileSize, canvasWidth_) - column * kTileSize,
                              std::min((row + 1) * kTileSize, canvasHeight_) - row * kTileSize};
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

void SdlWindow::drawPlanes(const std::vector<SurfacePlane>& planes, double scaleX, double scaleY) {
  // Textures of planes that have gone go too.
  for (auto it = videoTextures_.begin(); it != videoTextures_.end();) {
    const bool shown = std::any_of(planes.begin(), planes.end(),
                                   [&](const auto& plane) { return plane.owner == it->first; });
    if (shown) {
      ++it;
    } else {
      SDL_DestroyTexture(it->second.texture);
      it = videoTextures_.erase(it);
    }
  }
  for (const SurfacePlane& plane : planes) {
    SDL_Texture* texture = videoTexture(plane);
    if (!texture) continue;
    if (plane.fresh) uploadPicture(texture, *plane.picture);
    const SDL_FRect target{float(plane.x * scaleX), float(plane.y * scaleY),
                           float(plane.width * scaleX), float(plane.height * scaleY)};
    SDL_RenderCopyF(renderer_, texture, nullptr, &target);
  }
}

SDL_Texture* SdlWindow::videoTexture(const SurfacePlane& plane) {
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
    ZVLog::LogWarning("[SdlWindow] No video texture: {}", SDL_GetError());
    videoTextures_.erase(plane.owner);
    return nullptr;
  }
  SDL_SetTextureScaleMode(video.texture, SDL_ScaleModeLinear);
  // A new texture holds nothing yet: an old picture goes in now (a new one
  // is uploaded anyway).
  if (!plane.fresh) uploadPicture(video.texture, picture);
  return video.texture;
}

void SdlWindow::uploadPicture(SDL_Texture* texture, const media::YuvPicture& picture) {
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

}  // namespace zivora::platform
