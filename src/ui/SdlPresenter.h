#pragma once

#include <SDL.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ui/AppLifecycle.h"
#include "ui/Presenter.h"
#include "zivora/HostOptions.h"

namespace zivora::ui {

// Puts the presenter's frames on a display through SDL2: a borderless
// full-screen window (or one of the host's requested size) raised while an
// ad screen shows and hidden afterwards. Video pictures go to streaming
// textures of their own, uploaded from the decoder's planes, and the canvas
// (the controls) is drawn over them from a texture updated only where it
// changed, and only in the parts that hold something. Mouse, touch, keyboard and game
// controllers drive the screens; window events report the host's trips to
// the background. Under SDL's dummy driver the same frames stay in memory.
// Everything runs on the main queue, the one thread that drives SDL; the
// entry points assert it.
class SdlPresenter : public Presenter {
 public:
  // Null, with SDL's reason in `why`, when SDL's video subsystem cannot
  // start or no window can be made. Main queue only.
  static std::unique_ptr<SdlPresenter> create(const HostOptions& options,
                                              dispatch::Queue& mainQueue, dispatch::Clock& clock,
                                              AppLifecycle& lifecycle, std::string& why);
  ~SdlPresenter() override;

  // True when SDL's video subsystem was started by someone other than the
  // SDK (the host). It only reads SDL's own counters, so it is the one SDL
  // call made off the main queue, on the host's thread at initialisation.
  static bool videoStartedElsewhere();

  // Reacts to one SDL event; true when it was the presenter's.
  bool handleEvent(const SDL_Event& event);
  // Drains SDL's event queue and shows a new frame when one was drawn.
  void frame();
  // The size in pixels of the display the window is on.
  std::optional<Size> displayPixels() const;
  // The window the frames go to (for a host that reads back what it shows).
  SDL_Window* window() const { return window_; }

 protected:
  void windowsChanged() override;

 private:
  SdlPresenter(Screen screen, SDL_Window* window, bool hostWindow, dispatch::Queue& mainQueue,
               dispatch::Clock& clock, AppLifecycle& lifecycle);
  static Screen screenOf(SDL_Window* window, const HostOptions& options);
  // The renderer for our own window: SDL's software renderer instead of an
  // OpenGL one that rasterises on the CPU too (Mesa's llvmpipe on a
  // display without a GPU), which costs several times the CPU for the same
  // picture.
  static SDL_Renderer* createRenderer(SDL_Window* window);
  static bool rasterisesInSoftware(SDL_Renderer* renderer);
  // Shows the planes and the canvas over them; `canvasChanged` after
  // renderFrame() drew.
  void showFrame(bool canvasChanged);
  // Copies the canvas pixels in `area` to the texture (with their alpha
  // undone, as SDL blends) and notes which of its tiles hold something.
  void uploadCanvas(const cairo_rectangle_int_t& area);
  void drawPlanes(double scaleX, double scaleY);
  // A picture fills the whole window: nothing needs clearing first.
  bool planesCoverOutput(int width, int height, double scaleX, double scaleY) const;
  void drawCanvas(double scaleX, double scaleY);
  // The texture a plane's picture is shown from, made or remade for its
  // size; null when SDL cannot make one.
  SDL_Texture* videoTexture(const VideoPlanes::Plane& plane);
  void uploadPicture(SDL_Texture* texture, const media::YuvPicture& picture);
  void handleWindowEvent(const SDL_WindowEvent& event);
  void performBinding(const std::vector<ScreenAction>& actions);
  void openController(int deviceIndex);

  SDL_Window* window_;
  // The host's window: its renderer is borrowed, its events come from the
  // host, and the ad is drawn every frame since the host draws in between.
  bool hostWindow_;
  SDL_Renderer* renderer_ = nullptr;
  bool ownsRenderer_ = false;
  SDL_Texture* texture_ = nullptr;
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
  dispatch::Queue& mainQueue_;
  AppLifecycle& lifecycle_;
  dispatch::TaskHandle frameTimer_;
  std::map<SDL_JoystickID, SDL_GameController*> controllers_;
};

}  // namespace zivora::ui
