// A presenter with video planes: the picture is left out of the canvas and
// shown beneath it, later pictures replace it without redrawing the canvas,
// and a view that stops showing it (hidden, translucent, gone) takes it
// back into the canvas or away.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/media/YuvPicture.h"
#include "support/FakeMediaPlayer.h"
#include "support/PlanePresenter.h"
#include "support/VirtualRuntime.h"
#include "ui/Presenter.h"
#include "ui/Window.h"
#include "ui/ZVPlayerView.h"

namespace zivora::ui {
namespace {

constexpr int kScreenWidth = 160;
constexpr int kScreenHeight = 90;

// A mid-grey 4:2:0 picture of the given size.
media::VideoFrame greyFrame(int width, int height) {
  auto planes = std::make_shared<std::vector<std::uint8_t>>(
      static_cast<std::size_t>(width) * height * 3 / 2, std::uint8_t{128});
  std::uint8_t* luma = planes->data();
  std::uint8_t* blue = luma + static_cast<std::ptrdiff_t>(width) * height;
  std::uint8_t* red = blue + static_cast<std::ptrdiff_t>(width / 2) * (height / 2);
  media::VideoFrame frame;
  frame.width = width;
  frame.height = height;
  frame.yuv = std::make_shared<media::YuvPicture>(
      width, height, media::YuvPicture::Plane{luma, width},
      media::YuvPicture::Plane{blue, width / 2}, media::YuvPicture::Plane{red, width / 2},
      media::YuvMatrix::Bt709, false, planes);
  return frame;
}

std::uint32_t pixelAt(const Canvas& canvas, int x, int y) {
  std::uint32_t pixel;
  std::memcpy(&pixel, canvas.pixels() + static_cast<std::ptrdiff_t>(y) * canvas.stride() + x * 4,
              sizeof pixel);
  return pixel;
}

// The presenter belongs to the main queue (it asserts so): the tests run
// there, and so does its end.
class VideoPlanesTest : public ::testing::Test {
 protected:
  ~VideoPlanesTest() override {
    runtime_.runOnMain([&] { presenter_.reset(); });
  }
  void show(double scale) {
    presenter_ =
        std::make_unique<test::PlanePresenter>(Size{kScreenWidth, kScreenHeight}, scale, runtime_);
    window_->setBackgroundColor(Color{0, 0, 0, 1});
    window_->addSubview(player_);
    window_->addSubview(control_);
    control_->setBackgroundColor(Color{1, 0, 0, 1});
    player_->setPlayer(media_);
    media_->deliverFrame(greyFrame(160, 90));
    presenter_->present(window_);
    ASSERT_TRUE(presenter_->renderFrame());
  }
  const std::vector<VideoPlanes::Plane>& planes() const {
    return presenter_->videoPlanes()->planes();
  }

  test::VirtualRuntime runtime_;
  std::unique_ptr<test::PlanePresenter> presenter_;
  std::shared_ptr<Window> window_ =
      std::make_shared<Window>(Rect{{0, 0}, {kScreenWidth, kScreenHeight}});
  // Letterboxed: the picture is half the view's height, centred.
  std::shared_ptr<ZVPlayerView> player_ =
      std::make_shared<ZVPlayerView>(Rect{{0, 0}, {kScreenWidth, kScreenHeight}});
  std::shared_ptr<View> control_ = std::make_shared<View>(Rect{{10, 10}, {20, 20}});
  std::shared_ptr<test::FakeMediaPlayer> media_ = std::make_shared<test::FakeMediaPlayer>(nullptr);
};

TEST_F(VideoPlanesTest, ThePictureLiesBeneathAHoleInTheCanvasAndNewPicturesNeedNoRedraw) {
  runtime_.runOnMain([&] {
    show(2);
    ASSERT_EQ(planes().size(), 1u);
    // In canvas pixels, at the presenter's scale.
    EXPECT_EQ(planes()[0].pixels, (Rect{{0, 0}, {320, 180}}));
    const Canvas& canvas = presenter_->canvas();
    EXPECT_EQ(pixelAt(canvas, 160, 90), 0u) << "the picture was drawn into the canvas";
    EXPECT_EQ(pixelAt(canvas, 40, 40), 0xFFFF0000u) << "the control over it is missing";

    const auto first = planes()[0].picture;
    presenter_->videoPlanes()->takeChanges();
    media_->deliverFrame(greyFrame(160, 90));
    EXPECT_FALSE(presenter_->renderFrame());
    EXPECT_TRUE(presenter_->videoPlanes()->changed());
    ASSERT_EQ(planes().size(), 1u);
    EXPECT_NE(planes()[0].picture, first);
    EXPECT_TRUE(planes()[0].fresh);

    // A picture of another size is laid out again: a redraw, a new place.
    media_->deliverFrame(greyFrame(160, 45));
    EXPECT_TRUE(presenter_->renderFrame());
    ASSERT_EQ(planes().size(), 1u);
    EXPECT_EQ(planes()[0].pixels, (Rect{{0, 45}, {320, 90}}));
    EXPECT_EQ(pixelAt(canvas, 160, 20), 0xFF000000u) << "the letterbox is the window's black";
  });
}

TEST_F(VideoPlanesTest, AViewThatStopsShowingThePictureTakesItsPlaneAway) {
  runtime_.runOnMain([&] {
    show(1);
    ASSERT_EQ(planes().size(), 1u);

    // Drawn through a translucent group, the picture goes into the canvas.
    window_->setAlpha(0.5);
    ASSERT_TRUE(presenter_->renderFrame());
    EXPECT_TRUE(planes().empty());
    EXPECT_NE(pixelAt(presenter_->canvas(), 80, 45) >> 24, 0u);
    window_->setAlpha(1);
    ASSERT_TRUE(presenter_->renderFrame());
    ASSERT_EQ(planes().size(), 1u);

    // Hidden, the plane goes, and later pictures ask for a redraw again.
    player_->setHidden(true);
    ASSERT_TRUE(presenter_->renderFrame());
    EXPECT_TRUE(planes().empty());
    media_->deliverFrame(greyFrame(160, 90));
    EXPECT_TRUE(player_->needsDisplay());
    player_->setHidden(false);
    ASSERT_TRUE(presenter_->renderFrame());
    ASSERT_EQ(planes().size(), 1u);

    // A change elsewhere leaves the plane alone.
    control_->setBackgroundColor(Color{0, 0, 1, 1});
    ASSERT_TRUE(presenter_->renderFrame());
    EXPECT_EQ(planes().size(), 1u);

    // So do the window's dismissal and the view's end.
    presenter_->dismiss(*window_);
    presenter_->renderFrame();
    EXPECT_TRUE(planes().empty());
    presenter_->present(window_);
    ASSERT_TRUE(presenter_->renderFrame());
    ASSERT_EQ(planes().size(), 1u);
    player_->removeFromSuperview();
    player_.reset();
    EXPECT_TRUE(planes().empty());
  });
}

}  // namespace
}  // namespace zivora::ui
