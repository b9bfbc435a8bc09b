#pragma once

#include <SDL.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/WindowSurface.h"
#include "zivora/HostOptions.h"

namespace zivora::platform {

// The window through SDL2: a borderless full-screen window (or one of the
// host's requested size) raised while an ad screen shows and hidden
// afterwards, or the host's own window. Video pictures go to streaming
// textures of their own, uploaded from the decoder's planes, and the canvas
// (the controls) is drawn over them from a texture updated only where it
// changed, and only in the parts that hold something. Mouse, touch,
// keyboard and game controllers become the SDK's events. Under SDL's dummy
// driver nothing is shown and the frames stay in memory.
class SdlWindow : public WindowSurface {
 public:
  // Null, with SDL's reason in `why`, when SDL's video subsystem cannot
  // start or no window can be made.
  static std::unique_ptr<SdlWindow> open(const HostOptions& options, std::string& why);
  ~SdlWindow() override;
  SdlWindow(const SdlWindow&) = delete;
  SdlWindow& operator=(const SdlWindow&) = delete;

  // True when SDL's video subsystem was started by someone other than the
  // SDK (the host). It only reads SDL's own counters, so it is the one SDL
  // call made off the main queue, on the host's thread at initialisation.
  static bool videoStartedElsewhere();

  SurfaceSize size() const override { return size_; }
  std::optional<PixelSize> displayPixels() const override;
  bool showsVideoPlanes() const override;
  bool isHostWindow() const override { return hostWindow_; }
  void* nativeWindow() const override { return window_; }
  bool prepare(int canvasWidth, int canvasHeight) override;
  void setShown(bool shown) override;
  void poll(const std::function<void(const SurfaceEvent&)>& handle) override;
  std::optional<SurfaceEvent> translate(const void* nativeEvent) override;
  std::shared_ptr<const void> copyEvent(const void* nativeEvent) const override;
  bool present(const SurfaceFrame& frame) override;

 private:
  SdlWindow(SDL_Window* window, bool hostWindow);
  // The renderer for our own window: SDL's software renderer instead of an
  // OpenGL one that rasterises on the CPU too (Mesa's llvmpipe on a
  // display without a GPU), which costs several times the CPU for the same
  // picture.
  static SDL_Renderer* createRenderer(SDL_Window* window);
  static bool rasterisesInSoftware(SDL_Renderer* renderer);
  std::optional<SurfaceEvent> translateWindowEvent(const SDL_WindowEvent& event) const;
  // Copies the canvas pixels in `area` to the texture (with their alpha
  // undone, as SDL blends) and notes which of its tiles hold something.
  void uploadCanvas(const SurfaceFrame& frame, const PixelArea& damage);
  void drawPlanes(const std::vector<SurfacePlane>& planes, double scaleX, double scaleY);
  // A picture fills the whole window: nothing needs clearing first.
  static bool planesCoverOutput(const std::vector<SurfacePlane>& planes, int width, int height,
                                double scaleX, double scaleY);
  void drawCanvas(double scaleX, double scaleY);
  // The texture a plane's picture is shown from, made or remade for its
  // size; null when SDL cannot make one.
  SDL_Texture* videoTexture(const SurfacePlane& plane);
  void uploadPicture(SDL_Texture* texture, const media::YuvPicture& picture);
  void openController(int deviceIndex);

  SDL_Window* window_;
  // The host's window: its renderer is borrowed and its events come from
  // the host.
  bool hostWindow_;
  SurfaceSize size_;
  SDL_Renderer* renderer_ = nullptr;
  bool ownsRenderer_ = false;
  SDL_Texture* texture_ = nullptr;
  int canvasWidth_ = 0;
  int canvasHeight_ = 0;
  // What each square tile of the canvas holds, in rows of tiles.
  enum class Tile : std::uint8_t { Clear, Opaque, Translucent };
  std::vector<Tile> tiles_;
  int tileColumns_ = 0;
  // The renderer converts 4:2:0 planes itself (a GPU does it as it draws).
  bool nativeYuv_ = false;
  // The format pictures are converted into for the renderer: the window's
  // own when it has cairo's layout without alpha, so that showing them is
  // a plain copy.
  Uint32 pictureFormat_ = SDL_PIXELFORMAT_ARGB8888;
  struct VideoTexture {
    SDL_Texture* texture = nullptr;
    int width = 0;
    int height = 0;
  };
  std::map<const void*, VideoTexture> videoTextures_;
  std::map<SDL_JoystickID, SDL_GameController*> controllers_;
};

}  // namespace zivora::platform
