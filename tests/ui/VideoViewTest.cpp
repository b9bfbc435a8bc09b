// The video view on virtual time with a scripted player: the start
// watchdog, the controls' timers, the late skip, stalls and resumes, the
// application's trips to the background.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/FakeMediaFactory.h"
#include "support/ReferenceImage.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"
#include "ui/ZVVideoView.h"

namespace zivora::ui {
namespace {

using namespace std::chrono_literals;
using media::MediaTime;

class RecordingDelegate final : public ZVVideoViewDelegate {
 public:
  void preparedVideoView() override { calls.push_back("preparedVideoView"); }
  void errorPlayVideoItem() override { calls.push_back("errorPlayVideoItem"); }
  void didHideView() override { calls.push_back("didHideView"); }
  void didShowView() override { calls.push_back("didShowView"); }
  void finishedPlaying() override { calls.push_back("finishedPlaying"); }
  void tapCloseView() override { calls.push_back("tapCloseView"); }
  void failDuringPlayVideo(MediaTime time, bool cacheVideo) override {
    calls.push_back(std::string("failDuringPlayVideo:") + (cacheVideo ? "true" : "false"));
    failTimes.push_back(time);
  }
  std::vector<std::string> calls;
  std::vector<MediaTime> failTimes;
};

// A white disc with a dark rim, standing for the server's sound button.
void writeSpeaker(const std::filesystem::path& path) {
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 40, 40);
  cairo_t* cr = cairo_create(surface);
  cairo_arc(cr, 20, 20, 18, 0, 6.2832);
  cairo_set_source_rgba(cr, 1, 1, 1, 0.9);
  cairo_fill_preserve(cr);
  cairo_set_source_rgba(cr, 0, 0, 0, 1);
  cairo_set_line_width(cr, 2);
  cairo_stroke(cr);
  cairo_destroy(cr);
  cairo_surface_write_to_png(surface, path.c_str());
  cairo_surface_destroy(surface);
}

class VideoViewTest : public ::testing::Test {
 protected:
  VideoViewTest() {
    view_ = std::make_shared<ZVVideoView>(ZVVideoView::Environment{
        presenter_,
        media_,
        lifecycle_,
        mainQueue(),
        [](const std::string& file) {
          return std::make_shared<media::MediaAsset>("file:///cache/" + file);
        },
        {},
        std::nullopt,
        std::nullopt});
    view_->setDelegate(delegate_);
    window_->addSubview(view_);
    runtime_->runOnMain([&] { presenter_->present(window_); });
  }

  std::shared_ptr<dispatch::Queue> mainQueue() {
    return std::shared_ptr<dispatch::Queue>(runtime_, &runtime_->mainQueue());
  }

  test::FakeMediaPlayer& player() { return *media_->lastPlayer(); }
  test::FakeMediaItem& item() { return *media_->lastItem(); }

  // What the pipeline would report, delivered through the main queue.
  void ready(double duration) {
    item().setDuration(MediaTime::fromSeconds(duration));
    item().postStatus(media::MediaItemStatus::ReadyToPlay);
    runtime_->runUntilIdle();
  }
  void stall() {
    item().postStall();
    runtime_->runUntilIdle();
  }
  void deliverFrame(int width, int height, std::uint8_t red = 0x80) {
    // A gradient, so a picture that is cropped, stretched or misplaced shows.
    media::VideoFrame frame{width, height, width * 4, MediaTime::zero(), {}};
    frame.pixels.resize(static_cast<std::size_t>(width * height * 4));
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        std::uint8_t* p = frame.pixels.data() + (y * width + x) * 4;
        p[0] = static_cast<std::uint8_t>(x * 255 / width);   // blue
        p[1] = static_cast<std::uint8_t>(y * 255 / height);  // green
        p[2] = red;
        p[3] = 0xff;
      }
    }
    player().deliverFrame(frame);
  }

  // Prepares a video of `duration` seconds, shows it and lets the slide-in end.
  void showVideo(double duration = 15) {
    runtime_->runOnMain([&] { view_->prepareItem("v.mp4", MediaTime::zero()); });
    ready(duration);
    runtime_->runOnMain([&] { view_->show("v.mp4"); });
    runtime_->advanceBy(400ms);
  }

  // Plays for `seconds`, the player's clock moving with virtual time.
  void playFor(double seconds) {
    for (double t = 0; t < seconds - 1e-9; t += 0.05) {
      if (media_->lastPlayer() && player().rate() != 0 && !stuck_) {
        player().advanceBy(MediaTime::fromSeconds(0.05));
      }
      runtime_->advanceBy(50ms);
    }
  }

  long times(const std::string& call) {
    return std::count(delegate_->calls.begin(), delegate_->calls.end(), call);
  }
  // What the presenter composed, against the window drawn afresh.
  ::testing::AssertionResult composedAsDrawnAfresh() {
    return test::drawnAfresh(presenter_->canvas(), *window_);
  }
  bool called(const std::string& call) { return times(call) > 0; }

  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  test::ScopedContext scope_{HostOptions{}, RuntimeOptions{.runtime = runtime_}};
  // Outlives the presenter, whose windows hold the view that observes it.
  std::shared_ptr<AppLifecycle> lifecycle_ = std::make_shared<AppLifecycle>();
  std::shared_ptr<Presenter> presenter_ = std::make_shared<Presenter>(
      Screen{{640, 360}, 1, {}}, runtime_->mainQueue(), runtime_->clock());
  std::shared_ptr<test::FakeMediaFactory> media_ =
      std::make_shared<test::FakeMediaFactory>(runtime_->mainQueue());
  bool stuck_ = false;  // the player accepts play() but its clock stays
  std::shared_ptr<Window> window_ = std::make_shared<Window>(Rect{{0, 0}, {640, 360}});
  std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
  std::shared_ptr<ZVVideoView> view_;
};

TEST_F(VideoViewTest, ReadyAndFailedItemsReachTheOwner) {
  runtime_->runOnMain([&] { view_->prepareItem("v.mp4", MediaTime::fromSeconds(2.5)); });
  EXPECT_EQ(item().asset()->url(), "file:///cache/v.mp4");
  EXPECT_EQ(item().seeks(), std::vector<MediaTime>{MediaTime::fromSeconds(2.5)});
  ready(15);
  EXPECT_TRUE(view_->isReady());
  EXPECT_EQ(view_->getDuration(), 15.0f);
  runtime_->runOnMain([&] { view_->prepareItem("broken.mp4", MediaTime::zero()); });
  item().postStatus(media::MediaItemStatus::Failed);
  runtime_->runUntilIdle();
  EXPECT_EQ(delegate_->calls,
            (std::vector<std::string>{"preparedVideoView", "errorPlayVideoItem"}));
  auto events = scope_.analytics().events();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].message, "Can't play video");
}

TEST_F(VideoViewTest, SlidesInThenPlaysAndHidesTheControlsAfterAPause) {
  runtime_->runOnMain([&] { view_->prepareItem("v.mp4", MediaTime::zero()); });
  ready(15);
  runtime_->runOnMain([&] { view_->show("v.mp4"); });
  EXPECT_EQ(view_->translation().y, 360);
  EXPECT_EQ(player().playCount(), 0);
  runtime_->advanceBy(400ms);
  EXPECT_EQ(view_->translation().y, 0);
  EXPECT_EQ(player().playCount(), 1);
  EXPECT_EQ(delegate_->calls.back(), "didShowView");
  playFor(0.5);
  EXPECT_TRUE(view_->controlsShown());
  EXPECT_EQ(view_->skipButton()->frame().minY(), 10);
  EXPECT_EQ(view_->soundButton()->frame().maxY(), 350);
  playFor(3.0);  // 3.5 s after the controls came up
  EXPECT_FALSE(view_->controlsShown());
  playFor(0.5);
  EXPECT_EQ(view_->skipButton()->frame().maxY(), 0);     // just beyond the top
  EXPECT_EQ(view_->soundButton()->frame().minY(), 360);  // just beyond the bottom
  // The countdown follows the player: 3.5 s into 15 s shows 12.
  EXPECT_EQ(view_->timerProgress()->label()->text(), "12");
  // A tap anywhere brings them back.
  runtime_->runOnMain([&] { presenter_->tap({320, 180}); });
  EXPECT_TRUE(view_->controlsShown());
}

// A player that accepts play() but whose clock stays is started again
// after 1.5 s and reported after 2 s, also when the view stopped in between
// (the pending check still runs) or went away altogether: then the log and
// analytics hear of it, and the failure call, which needs the view, is not
// made.
struct StuckPlayerCase {
  const char* name;
  enum { StillShown, Stopped, Gone } before;
  bool reportedToTheOwner;
};
void PrintTo(const StuckPlayerCase& row, std::ostream* out) { *out << row.name; }

class StuckPlayerTest : public VideoViewTest,
                        public ::testing::WithParamInterface<StuckPlayerCase> {};

TEST_P(StuckPlayerTest, IsStartedAgainThenReported) {
  stuck_ = true;
  showVideo();
  runtime_->advanceBy(1499ms);
  EXPECT_EQ(player().playCount(), 1);
  runtime_->advanceBy(1ms);
  ASSERT_EQ(player().playCount(), 2);
  if (GetParam().before == StuckPlayerCase::Stopped) runtime_->runOnMain([&] { view_->stop(); });
  if (GetParam().before == StuckPlayerCase::Gone) {
    std::weak_ptr<ZVVideoView> gone = view_;
    window_.reset();
    presenter_.reset();
    view_.reset();
    ASSERT_TRUE(gone.expired());
  }
  runtime_->advanceBy(499ms);
  EXPECT_FALSE(called("failDuringPlayVideo:false"));
  runtime_->advanceBy(1ms);
  EXPECT_EQ(called("failDuringPlayVideo:false"), GetParam().reportedToTheOwner);
  EXPECT_TRUE(scope_.log().contains("[ZVVideoView][Play] Fail start play, need restart."));
  const auto events = scope_.analytics().events();
  EXPECT_TRUE(std::any_of(events.begin(), events.end(), [](const auto& event) {
    return event.eventName == "info" && event.method == "repeatCheckPlaing" &&
           event.message == "Fail start play, need restart.";
  }));
}

INSTANTIATE_TEST_SUITE_P(
    VideoView, StuckPlayerTest,
    ::testing::Values(StuckPlayerCase{"StillShown", StuckPlayerCase::StillShown, true},
                      StuckPlayerCase{"Stopped", StuckPlayerCase::Stopped, true},
                      StuckPlayerCase{"Gone", StuckPlayerCase::Gone, false}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(VideoViewTest, AnAdThatForbidsSkippingCanBeClosedFiveSecondsAfterItsEnd) {
  runtime_->runOnMain([&] { view_->allowSkipAfer(-1); });
  EXPECT_TRUE(view_->skipButton()->isHidden());
  showVideo(15);
  playFor(19.9);
  EXPECT_TRUE(view_->skipButton()->isHidden());
  playFor(0.2);
  EXPECT_FALSE(view_->skipButton()->isHidden());
  EXPECT_TRUE(view_->skipButton()->isReady());
  EXPECT_TRUE(view_->controlsShown());
}

TEST_F(VideoViewTest, TheSkipControlActsOnlyWhenReady) {
  runtime_->runOnMain([&] { view_->allowSkipAfer(5); });
  showVideo(15);
  playFor(3);
  runtime_->runOnMain([&] { view_->skipVideoHandler(); });
  EXPECT_FALSE(called("tapCloseView"));
  playFor(3);  // the tap kept the controls up past the first 3.5 s
  EXPECT_TRUE(view_->controlsShown());
  runtime_->runOnMain([&] { presenter_->performAction(ScreenAction::Skip); });
  EXPECT_FALSE(called("tapCloseView"));                     // hidden controls take no keys...
  runtime_->runOnMain([&] { view_->skipVideoHandler(); });  // ...but the control itself is ready
  EXPECT_TRUE(called("tapCloseView"));
}

TEST_F(VideoViewTest, AStallIsReportedOnceAndPlaybackResumesWhereItStopped) {
  showVideo(15);
  playFor(4);
  stall();
  item().postFailedToPlayToEnd();
  runtime_->runUntilIdle();
  EXPECT_EQ(times("failDuringPlayVideo:true"), 1);
  const MediaTime stoppedAt = delegate_->failTimes.back();
  EXPECT_NEAR(stoppedAt.seconds(), 4.0, 1e-6);
  EXPECT_EQ(player().rate(), 0);

  auto oldPicture = view_->getPlayerView();
  runtime_->runOnMain([&] { view_->continuePlayingAfterError(); });
  EXPECT_EQ(item().seeks().back(), stoppedAt);
  ready(15);
  // No second "prepared": the resume goes straight back to playing.
  EXPECT_EQ(times("preparedVideoView"), 1);
  EXPECT_EQ(player().rate(), 1);
  EXPECT_NE(view_->getPlayerView(), oldPicture);
  EXPECT_NE(oldPicture->superview(), nullptr);  // the last frame stays a second
  runtime_->advanceBy(1s);
  EXPECT_EQ(oldPicture->superview(), nullptr);
  // A new failure is reported again.
  stall();
  EXPECT_EQ(times("failDuringPlayVideo:true"), 2);
}

TEST_F(VideoViewTest, TheBackgroundPausesAndTheLateSkipCountsFromTheRemainingTime) {
  runtime_->runOnMain([&] { view_->allowSkipAfer(-1); });
  showVideo(15);
  playFor(5);
  lifecycle_->post(AppLifecycle::Event::DidEnterBackground);
  EXPECT_EQ(player().rate(), 0);
  runtime_->advanceBy(60s);
  EXPECT_TRUE(view_->skipButton()->isHidden());
  lifecycle_->post(AppLifecycle::Event::WillEnterForeground);
  EXPECT_EQ(player().rate(), 1);
  playFor(14.9);  // 10 s left + 5 s
  EXPECT_TRUE(view_->skipButton()->isHidden());
  playFor(0.2);
  EXPECT_FALSE(view_->skipButton()->isHidden());
}

TEST_F(VideoViewTest, EndSlideOutAndStop) {
  showVideo(2);
  playFor(2);
  item().postPlayedToEnd();
  runtime_->runUntilIdle();
  EXPECT_TRUE(called("finishedPlaying"));
  EXPECT_FALSE(item().hasObserver());
  runtime_->runOnMain([&] { view_->hide(); });
  runtime_->advanceBy(100ms);
  EXPECT_FALSE(called("didHideView"));
  runtime_->advanceBy(120ms);
  EXPECT_TRUE(called("didHideView"));
  runtime_->runOnMain([&] { view_->stop(); });
  EXPECT_TRUE(item().asset()->isLoadingCancelled());
}

TEST_F(VideoViewTest, AViewWhosePresenterHasGoneKeepsItsTimersHarmless) {
  // A reset closes the screens while the view's timers are still queued.
  showVideo(15);
  playFor(1);
  std::weak_ptr<Presenter> gone = presenter_;
  window_.reset();
  presenter_.reset();
  ASSERT_TRUE(gone.expired());
  runtime_->runOnMain([&] { view_->hide(); });
  runtime_->runOnMain([&] { view_->swithUIHandler(); });
  runtime_->advanceBy(10s);
  EXPECT_FALSE(called("didHideView"));
}

TEST_F(VideoViewTest, RendersThePictureUnderTheControls) {
  test::TempDir images;
  writeSpeaker(images.path() / "on.png");
  view_ = std::make_shared<ZVVideoView>(ZVVideoView::Environment{
      presenter_, media_, lifecycle_, mainQueue(),
      [](const std::string& file) { return media::MediaAsset::fromFile(file); },
      [&](const std::string& url) { return images.path() / url; }, "on.png", "off.png"});
  window_->addSubview(view_);
  runtime_->runOnMain([&] { view_->allowSkipAfer(5); });
  showVideo(15);
  deliverFrame(320, 180);
  playFor(1);
  runtime_->runOnMain([&] { presenter_->renderFrame(); });
  EXPECT_TRUE(test::matchesReference(presenter_->canvas(), "video-view-controls"));
  playFor(4);
  runtime_->runOnMain([&] { presenter_->renderFrame(); });
  EXPECT_TRUE(test::matchesReference(presenter_->canvas(), "video-view-plain"));
}

// The presenter redraws only the pixels that changed, over what it drew
// before: through the slide-in, new pictures, the controls coming and
// going and the skip control turning opaque, the screen must stay what a
// full redraw gives.
TEST_F(VideoViewTest, ComposingOnlyWhatChangedLeavesTheScreenAsAFullRedraw) {
  runtime_->runOnMain([&] { view_->allowSkipAfer(2); });
  runtime_->runOnMain([&] { view_->prepareItem("v.mp4", MediaTime::zero()); });
  ready(15);
  deliverFrame(320, 180);
  runtime_->runOnMain([&] { view_->show("v.mp4"); });
  for (int step = 0; step < 120; ++step) {
    if (player().rate() != 0) player().advanceBy(MediaTime::fromSeconds(0.05));
    if (step % 3 != 2) deliverFrame(320, 180, static_cast<std::uint8_t>(step * 2));
    runtime_->advanceBy(50ms);
    runtime_->runOnMain([&] { presenter_->renderFrame(); });
    ASSERT_TRUE(composedAsDrawnAfresh()) << "after " << (step + 1) * 50 << " ms";
  }
  EXPECT_FALSE(view_->controlsShown());
  runtime_->runOnMain([&] { presenter_->tap({320, 180}); });
  runtime_->advanceBy(200ms);  // half-way in
  runtime_->runOnMain([&] { presenter_->renderFrame(); });
  EXPECT_TRUE(composedAsDrawnAfresh());
}

TEST_F(VideoViewTest, ControlsTickingOffTheScreenDoNotRecomposeIt) {
  showVideo(15);
  deliverFrame(320, 180);
  playFor(4.5);  // the controls came up and went away again
  ASSERT_FALSE(view_->controlsShown());
  runtime_->runOnMain([&] { presenter_->renderFrame(); });
  playFor(0.05);  // the countdown and the skip ring move, out of sight
  EXPECT_TRUE(window_->needsDisplay());
  runtime_->runOnMain([&] { EXPECT_FALSE(presenter_->renderFrame()); });
  deliverFrame(320, 180, 0x40);
  runtime_->runOnMain([&] { EXPECT_TRUE(presenter_->renderFrame()); });
  EXPECT_TRUE(composedAsDrawnAfresh());
}

}  // namespace
}  // namespace zivora::ui
