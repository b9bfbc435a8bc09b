#pragma once

#include <SDL.h>

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
// ad screen shows and hidden afterwards, the frame uploaded to a streaming
// texture only when something changed. Mouse, touch, keyboard and game
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
  void showFrame();
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
  dispatch::Queue& mainQueue_;
  AppLifecycle& lifecycle_;
  dispatch::TaskHandle frameTimer_;
  std::map<SDL_JoystickID, SDL_GameController*> controllers_;
};

}  // namespace zivora::ui
