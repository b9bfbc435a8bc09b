#include <SDL.h>
#include <gtest/gtest.h>

#include "support/ScopedContext.h"
#include "support/ScopedEnv.h"
#include "support/VirtualRuntime.h"
#include "ui/WindowPresenter.h"

namespace zivora::ui {
namespace {

using namespace std::chrono_literals;

// SDL's dummy video driver: a real SDL window and software renderer without
// a display, so event handling and frame upload run as on a desktop.
class SdlWindowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    HostOptions options;
    options.screenWidth = 320;
    options.screenHeight = 200;
    std::string why;
    runtime_.runOnMain([&] {
      presenter_ =
          WindowPresenter::create(options, runtime_.mainQueue(), runtime_.clock(), lifecycle_, why);
    });
    if (!presenter_) GTEST_SKIP() << "SDL's dummy video driver is not available: " << why;
    window_ = std::make_shared<Window>(presenter_->screen().bounds());
    cta_ = std::make_shared<Button>(Rect{{0, 0}, {100, 100}});
    close_ = std::make_shared<Button>(Rect{{220, 0}, {100, 100}});
    cta_->setAction([this] { ++clicks_; });
    close_->setAction([this] { ++closes_; });
    window_->addSubview(cta_);
    window_->addSubview(close_);
    window_->bindAction(ScreenAction::CallToAction, cta_);
    window_->bindAction(ScreenAction::Close, close_);
    runtime_.runOnMain([&] { presenter_->present(window_); });
  }

  void push(SDL_Event event) {
    SDL_PushEvent(&event);
    runtime_.advanceBy(20ms);
  }

  test::ScopedEnv driver_{"SDL_VIDEODRIVER", "dummy"};
  test::VirtualRuntime runtime_;
  test::ScopedContext context_;
  AppLifecycle lifecycle_;
  std::unique_ptr<WindowPresenter> presenter_;
  std::shared_ptr<Window> window_;
  std::shared_ptr<Button> cta_, close_;
  int clicks_ = 0, closes_ = 0;
};

TEST_F(SdlWindowTest, MouseTouchKeysAndControllerButtonsReachTheControls) {
  EXPECT_EQ(presenter_->screen().size, (Size{320, 200}));
  SDL_Event click{};
  click.type = SDL_MOUSEBUTTONUP;
  click.button.button = SDL_BUTTON_LEFT;
  click.button.x = 50;
  click.button.y = 50;
  push(click);
  EXPECT_EQ(clicks_, 1);
  // The mouse copy of a touch is not a second tap.
  click.button.which = SDL_TOUCH_MOUSEID;
  push(click);
  EXPECT_EQ(clicks_, 1);
  SDL_Event finger{};
  finger.type = SDL_FINGERUP;
  finger.tfinger.x = 0.9f;
  finger.tfinger.y = 0.1f;
  push(finger);
  EXPECT_EQ(closes_, 1);

  SDL_Event key{};
  key.type = SDL_KEYDOWN;
  key.key.keysym.sym = SDLK_RETURN;
  push(key);
  EXPECT_EQ(clicks_, 2);
  key.key.repeat = 1;  // held down: once
  push(key);
  EXPECT_EQ(clicks_, 2);
  key.key.repeat = 0;
  key.key.keysym.sym = SDLK_ESCAPE;  // no skip control here: it closes
  push(key);
  EXPECT_EQ(closes_, 2);

  SDL_Event button{};
  button.type = SDL_CONTROLLERBUTTONDOWN;
  button.cbutton.button = SDL_CONTROLLER_BUTTON_A;
  push(button);
  EXPECT_EQ(clicks_, 3);
  // A hidden control does not act, whatever the binding.
  close_->setHidden(true);
  button.cbutton.button = SDL_CONTROLLER_BUTTON_B;
  push(button);
  EXPECT_EQ(closes_, 2);
}

TEST_F(SdlWindowTest, WindowEventsReportTheBackgroundOnce) {
  std::vector<AppLifecycle::Event> events;
  lifecycle_.addObserver([&](AppLifecycle::Event e) { events.push_back(e); });
  SDL_Event window{};
  window.type = SDL_WINDOWEVENT;
  window.window.event = SDL_WINDOWEVENT_FOCUS_LOST;
  push(window);
  window.window.event = SDL_WINDOWEVENT_MINIMIZED;
  push(window);
  window.window.event = SDL_WINDOWEVENT_RESTORED;
  push(window);
  EXPECT_EQ(events, (std::vector<AppLifecycle::Event>{AppLifecycle::Event::DidEnterBackground,
                                                      AppLifecycle::Event::WillEnterForeground}));
}

TEST_F(SdlWindowTest, FramesAreDrawnOnlyWhenSomethingChangedAndStopWithTheLastWindow) {
  runtime_.advanceBy(20ms);
  runtime_.runOnMain([&] { EXPECT_FALSE(presenter_->renderFrame()); });
  cta_->setBackgroundColor(Color::white());
  runtime_.runOnMain([&] { EXPECT_TRUE(presenter_->renderFrame()); });
  runtime_.runOnMain([&] { presenter_->dismiss(*window_); });
  EXPECT_EQ(runtime_.pendingTaskCount(), 0u);
}

// A host that owns its window and loop: the ad is drawn with the host's
// renderer every frame and the host's events stay the host's.
TEST(SdlHostWindowTest, DrawsIntoTheHostsWindowAndLeavesItsEventsAlone) {
  test::ScopedEnv driver("SDL_VIDEODRIVER", "dummy");
  if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0) GTEST_SKIP() << SDL_GetError();
  test::VirtualRuntime runtime;
  test::ScopedContext context;
  AppLifecycle lifecycle;
  SDL_Window* hostWindow = SDL_CreateWindow("game", 0, 0, 160, 120, SDL_WINDOW_HIDDEN);
  SDL_Renderer* hostRenderer = SDL_CreateRenderer(hostWindow, -1, SDL_RENDERER_SOFTWARE);
  ASSERT_NE(hostRenderer, nullptr) << SDL_GetError();
  {
    HostOptions options;
    options.hostWindow = hostWindow;
    std::unique_ptr<WindowPresenter> presenter;
    std::string why;
    runtime.runOnMain([&] {
      presenter =
          WindowPresenter::create(options, runtime.mainQueue(), runtime.clock(), lifecycle, why);
    });
    ASSERT_NE(presenter, nullptr) << why;
    EXPECT_EQ(presenter->screen().size, (Size{160, 120}));
    auto window = std::make_shared<Window>(presenter->screen().bounds());
    window->setBackgroundColor(Color{1, 0, 0, 1});
    int taps = 0;
    window->setTapHandler([&] { ++taps; });
    runtime.runOnMain([&] { presenter->present(window); });

    SDL_Event userEvent{};
    userEvent.type = SDL_USEREVENT;
    SDL_PushEvent(&userEvent);
    runtime.advanceBy(std::chrono::milliseconds(50));
    SDL_Event polled{};
    EXPECT_EQ(SDL_PollEvent(&polled), 1);
    EXPECT_EQ(polled.type, static_cast<Uint32>(SDL_USEREVENT));

    Uint32 pixel = 0;
    SDL_Rect one{80, 60, 1, 1};
    ASSERT_EQ(SDL_RenderReadPixels(hostRenderer, &one, SDL_PIXELFORMAT_ARGB8888, &pixel, 4), 0);
    EXPECT_EQ(pixel, 0xFFFF0000u);

    SDL_Event click{};
    click.type = SDL_MOUSEBUTTONUP;
    click.button.button = SDL_BUTTON_LEFT;
    click.button.x = 10;
    click.button.y = 10;
    runtime.runOnMain([&] { EXPECT_TRUE(presenter->handleEvent(&click)); });
    EXPECT_EQ(taps, 1);
  }
  // The host's window and renderer outlive the presenter.
  EXPECT_EQ(SDL_GetRenderer(hostWindow), hostRenderer);
  SDL_DestroyRenderer(hostRenderer);
  SDL_DestroyWindow(hostWindow);
  SDL_QuitSubSystem(SDL_INIT_VIDEO);
}

}  // namespace
}  // namespace zivora::ui
