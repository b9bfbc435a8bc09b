// The display is driven from the main queue only, and an ad that can never
// be shown fails at once with a clear code: SDL's video cannot start, or a
// host drives SDL itself while the SDK was asked to run its own thread.
#include <SDL.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "ads/ZVVideoManager.h"
#include "support/RecordingHost.h"
#include "support/ScopedContext.h"
#include "support/ScopedEnv.h"
#include "support/VirtualRuntime.h"
#include "ui/Display.h"
#include "ui/WindowPresenter.h"
#include "zivora/ZivoraDelegate.h"

namespace zivora::ui {
namespace {

// Exactly one line of the log holds `part`.
bool logged(test::ScopedContext& scope, const std::string& part) {
  const auto texts = scope.log().texts();
  return std::count_if(texts.begin(), texts.end(), [&](const std::string& text) {
           return text.find(part) != std::string::npos;
         }) == 1;
}

class DisplayTest : public ::testing::Test {
 protected:
  std::shared_ptr<Display> display() { return Display::of(Context::current()); }

  // A placement asked for while the display is as it is.
  std::vector<std::string> cacheVideo() {
    auto host = std::make_shared<test::RecordingHost>();
    auto manager = std::make_shared<ZVVideoManager>(host);
    manager->cacheVideo("rewarded");
    runtime_->runUntilIdle();
    return host->calls;
  }

  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  test::ScopedContext scope_{{}, {.runtime = runtime_}};
};

TEST_F(DisplayTest, WhenSdlVideoCannotStartAnAdFailsAtOnceAfterOneClearLine) {
  // A driver SDL cannot start: no library of a window system is loaded, so
  // nothing outlives the test.
  test::ScopedEnv driver("SDL_VIDEODRIVER", "no-such-driver");
  runtime_->runOnMain([&] { display()->open(); });
  EXPECT_EQ(display()->availability(), Display::Availability::Unavailable);
  EXPECT_TRUE(logged(scope_, "[Zivora] No ad can be shown: the display did not open"));
  EXPECT_EQ(display()->pixelSize(), std::nullopt);
  EXPECT_EQ(cacheVideo(), std::vector<std::string>{"videoDidFailToLoad rewarded 5"});
  // Opening again changes nothing and says nothing more.
  runtime_->runOnMain([&] { display()->open(); });
  EXPECT_TRUE(logged(scope_, "[Zivora] No ad can be shown"));
}

TEST_F(DisplayTest, ADummyDisplayOpensWithItsSizeAndShape) {
  test::ScopedEnv driver("SDL_VIDEODRIVER", "dummy");
  runtime_->runOnMain([&] { display()->open(); });
  ASSERT_EQ(display()->availability(), Display::Availability::Available);
  // SDL's dummy display is 1024 x 768, the window full screen on it.
  EXPECT_EQ(display()->pixelSize(), (Size{1024, 768}));
  EXPECT_EQ(display()->deviceOrientation(), 2);
  runtime_->runOnMain([&] { display()->closeScreens(); });
}

TEST_F(DisplayTest, SdlReachedOffTheMainQueueIsCaught) {
  test::ScopedEnv driver("SDL_VIDEODRIVER", "dummy");
  AppLifecycle lifecycle;
  std::string why;
  auto offQueue = [&] {
    return WindowPresenter::create({}, runtime_->mainQueue(), runtime_->clock(), lifecycle, why);
  };
#ifdef NDEBUG
  // Release builds log the place and go on.
  auto presenter = offQueue();
  EXPECT_TRUE(logged(scope_, "mainQueue (main) is not the current queue"));
  if (presenter) runtime_->runOnMain([&] { presenter.reset(); });
#else
  // Debug and sanitizer builds stop at once (the line goes to the test's
  // log, not to the dying child's standard error).
  EXPECT_DEATH(offQueue(), "");
#endif
}

class HostOwnedSdlTest : public DisplayTest {
 protected:
  HostOwnedSdlTest() {
    if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0) skip_ = SDL_GetError();
  }
  ~HostOwnedSdlTest() override {
    if (skip_.empty()) SDL_QuitSubSystem(SDL_INIT_VIDEO);
  }

  test::ScopedEnv driver_{"SDL_VIDEODRIVER", "dummy"};
  std::string skip_;
};

TEST_F(HostOwnedSdlTest, OwnThreadModeIsRefusedWithTheModeToUse) {
  if (!skip_.empty()) GTEST_SKIP() << skip_;
  display()->checkHost({.mainQueueMode = MainQueueMode::OwnThread});
  EXPECT_TRUE(logged(scope_, "Initialise with MainQueueMode::HostPumped"));
  runtime_->runOnMain([&] { display()->open(); });
  EXPECT_EQ(display()->availability(), Display::Availability::Unavailable);
  EXPECT_EQ(cacheVideo(), std::vector<std::string>{"videoDidFailToLoad rewarded 5"});
}

TEST_F(HostOwnedSdlTest, HostPumpedModeSharesTheHostsSdl) {
  if (!skip_.empty()) GTEST_SKIP() << skip_;
  display()->checkHost({.mainQueueMode = MainQueueMode::HostPumped});
  runtime_->runOnMain([&] { display()->open(); });
  EXPECT_EQ(display()->availability(), Display::Availability::Available);
  runtime_->runOnMain([&] { display()->closeScreens(); });
  // The host's own use of SDL outlives the SDK's.
  EXPECT_NE(SDL_WasInit(SDL_INIT_VIDEO), 0u);
}

}  // namespace
}  // namespace zivora::ui
