#include <gtest/gtest.h>

#include <array>

#include "support/FakeWindowSurface.h"
#include "support/ScopedContext.h"
#include "support/VirtualRuntime.h"
#include "ui/Button.h"
#include "ui/WindowPresenter.h"

namespace zivora::ui {
namespace {

using namespace std::chrono_literals;
using Kind = platform::SurfaceEvent::Kind;

class WindowPresenterTest : public ::testing::Test {
 protected:
  void open(bool hostWindow) {
    auto surface = std::make_unique<test::FakeWindowSurface>();
    surface->host = hostWindow;
    surface_ = surface.get();
    runtime_.runOnMain([&] {
      presenter_ = std::make_unique<WindowPresenter>(
          std::move(surface), HostOptions{}, runtime_.mainQueue(), runtime_.clock(), lifecycle_);
    });
    window_ = std::make_shared<Window>(presenter_->screen().bounds());
    cta_ = std::make_shared<Button>(Rect{{0, 0}, {100, 100}});
    cta_->setAction([this] { ++clicks_; });
    window_->addSubview(cta_);
    window_->bindAction(ScreenAction::CallToAction, cta_);
    lifecycle_.addObserver(
        [this](AppLifecycle::Event event) { lifecycle_events_.push_back(event); });
  }

  void TearDown() override {
    runtime_.runOnMain([&] { presenter_.reset(); });
  }

  std::shared_ptr<const media::YuvPicture> picture() {
    return std::make_shared<media::YuvPicture>(4, 4, media::YuvPicture::Plane{luma_.data(), 4},
                                               media::YuvPicture::Plane{chroma_.data(), 2},
                                               media::YuvPicture::Plane{chroma_.data(), 2},
                                               media::YuvMatrix::Bt601, false);
  }

  test::VirtualRuntime runtime_;
  test::ScopedContext context_;
  AppLifecycle lifecycle_;
  std::vector<AppLifecycle::Event> lifecycle_events_;
  test::FakeWindowSurface* surface_ = nullptr;
  std::unique_ptr<WindowPresenter> presenter_;
  std::shared_ptr<Window> window_;
  std::shared_ptr<Button> cta_;
  int clicks_ = 0;
  std::array<std::uint8_t, 16> luma_{};
  std::array<std::uint8_t, 4> chroma_{};
};

TEST_F(WindowPresenterTest, FramesCarryTheCanvasDamageOnlyWhenItChangedAndPlanesUntilShown) {
  open(false);
  ASSERT_NE(presenter_->videoPlanes(), nullptr);
  runtime_.runOnMain([&] { presenter_->present(window_); });
  EXPECT_EQ(surface_->visibility, std::vector<bool>{true});
  ASSERT_EQ(surface_->frames.size(), 1u);
  EXPECT_GT(surface_->frames[0].damage, 0u);

  // Nothing changed: no frame goes to the window.
  runtime_.advanceBy(50ms);
  EXPECT_EQ(surface_->frames.size(), 1u);

  // A new picture alone: the planes go, the canvas texture is left alone.
  const int owner = 0;
  runtime_.runOnMain([&] { presenter_->videoPlanes()->show(&owner, picture(), {{0, 0}, {4, 4}}); });
  runtime_.advanceBy(20ms);
  ASSERT_EQ(surface_->frames.size(), 2u);
  EXPECT_EQ(surface_->frames[1].damage, 0u);
  EXPECT_EQ(surface_->frames[1].freshPlanes, std::vector<bool>{true});

  // A window that could not show the frame gets the picture again as new.
  surface_->canPresent = false;
  runtime_.runOnMain([&] { presenter_->videoPlanes()->update(&owner, picture()); });
  runtime_.advanceBy(20ms);
  surface_->canPresent = true;
  runtime_.advanceBy(20ms);
  ASSERT_EQ(surface_->frames.size(), 4u);
  EXPECT_EQ(surface_->frames[3].freshPlanes, std::vector<bool>{true});
  runtime_.advanceBy(20ms);
  EXPECT_EQ(surface_->frames.size(), 4u);

  runtime_.runOnMain([&] { presenter_->dismiss(*window_); });
  EXPECT_EQ(surface_->visibility, (std::vector<bool>{true, false}));
  EXPECT_EQ(runtime_.pendingTaskCount(), 0u);
}

TEST_F(WindowPresenterTest, WindowEventsDriveTheControlsAndTheLifecycle) {
  open(false);
  // Hidden before any screen shows is the game's own business.
  surface_->pending = {{Kind::Hidden}};
  runtime_.runOnMain([&] { presenter_->frame(); });
  EXPECT_TRUE(lifecycle_events_.empty());

  runtime_.runOnMain([&] { presenter_->present(window_); });
  surface_->pending = {{Kind::Tap, 50, 50}, {Kind::Tap, 300, 150}, {Kind::Confirm},
                       {Kind::Hidden},      {Kind::Shown},         {Kind::Background},
                       {Kind::Foreground}};
  runtime_.advanceBy(20ms);
  EXPECT_EQ(clicks_, 2);
  using Event = AppLifecycle::Event;
  EXPECT_EQ(lifecycle_events_,
            (std::vector<Event>{Event::DidEnterBackground, Event::WillEnterForeground,
                                Event::DidEnterBackground, Event::WillEnterForeground}));

  // An exposed window is drawn again whole, though nothing changed.
  const auto before = surface_->frames.size();
  surface_->pending = {{Kind::Exposed}};
  runtime_.advanceBy(20ms);
  ASSERT_EQ(surface_->frames.size(), before + 1);
  EXPECT_GT(surface_->frames.back().damage, 0u);
}

TEST_F(WindowPresenterTest, TheHostsWindowIsDrawnEveryFrameAndItsEventsComeFromTheHost) {
  open(true);
  runtime_.runOnMain([&] { presenter_->present(window_); });
  surface_->pending = {{Kind::Confirm}};
  runtime_.advanceBy(50ms);
  // The host's loop polls: queued events stay the host's.
  EXPECT_EQ(clicks_, 0);
  EXPECT_GE(surface_->frames.size(), 3u);
  const platform::SurfaceEvent tap{Kind::Tap, 50, 50};
  runtime_.runOnMain([&] { EXPECT_TRUE(presenter_->handleEvent(&tap)); });
  EXPECT_EQ(clicks_, 1);
}

}  // namespace
}  // namespace zivora::ui
