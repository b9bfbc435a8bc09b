// A 4:2:0 picture written straight into the canvas, whole or where a change
// left damage, against the same picture drawn from its converted pixels.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "platform/media/YuvPicture.h"
#include "support/FakeMediaPlayer.h"
#include "support/ReferenceImage.h"
#include "ui/Canvas.h"
#include "ui/ZVPlayerView.h"

namespace zivora::ui {
namespace {

constexpr int kWidth = 64;
constexpr int kHeight = 36;

// A picture whose pixels all differ, so one drawn misplaced or with the
// wrong chroma shows.
class Picture {
 public:
  explicit Picture(std::size_t seed = 0)
      : luma_(kWidth * kHeight), blue_(kWidth * kHeight / 4), red_(blue_.size()) {
    for (std::size_t i = 0; i < luma_.size(); ++i) {
      luma_[i] = static_cast<std::uint8_t>((i + seed) * 5 % 256);
    }
    for (std::size_t i = 0; i < blue_.size(); ++i) {
      blue_[i] = static_cast<std::uint8_t>(i * 11 % 256);
      red_[i] = static_cast<std::uint8_t>(255 - i * 3 % 256);
    }
  }

  // The picture as the decoder made it.
  media::VideoFrame yuvFrame() const {
    media::VideoFrame frame;
    frame.width = kWidth;
    frame.height = kHeight;
    frame.yuv = std::make_shared<media::YuvPicture>(
        kWidth, kHeight, media::YuvPicture::Plane{luma_.data(), kWidth},
        media::YuvPicture::Plane{blue_.data(), kWidth / 2},
        media::YuvPicture::Plane{red_.data(), kWidth / 2}, media::YuvMatrix::Bt709, false);
    return frame;
  }

  // The same picture converted.
  media::VideoFrame pixelFrame() const {
    media::VideoFrame frame = yuvFrame();
    frame.stride = kWidth * 4;
    frame.pixels.resize(static_cast<std::size_t>(frame.stride * kHeight));
    frame.yuv->convert(frame.pixels.data(), frame.stride);
    frame.yuv.reset();
    return frame;
  }

 private:
  std::vector<std::uint8_t> luma_, blue_, red_;
};

// A screen: the player view with a small box over the picture.
struct Screen {
  Screen(const media::VideoFrame& frame, Point at, double scale)
      : canvas({kWidth, kHeight}, scale) {
    root->addSubview(view);
    view->addSubview(box);
    box->setBackgroundColor(Color{0.1, 0.8, 0.3, 0.5});
    view->setPlayer(player);
    view->setFrame({at, {kWidth, kHeight}});
    player->deliverFrame(frame);
  }
  void composeChanges() { test::composeChanges(canvas, *root); }

  std::shared_ptr<View> root = std::make_shared<View>(Rect{{0, 0}, {kWidth, kHeight}});
  std::shared_ptr<ZVPlayerView> view = std::make_shared<ZVPlayerView>();
  std::shared_ptr<View> box = std::make_shared<View>(Rect{{7, 5}, {9, 6}});
  std::shared_ptr<test::FakeMediaPlayer> player = std::make_shared<test::FakeMediaPlayer>(nullptr);
  Canvas canvas;
};

TEST(PlayerViewTest, APictureWrittenInPlaceMatchesItsConvertedPixelsWholeAndInPart) {
  const Picture picture;
  Screen yuv(picture.yuvFrame(), {0, 0}, 1);
  Screen converted(picture.pixelFrame(), {0, 0}, 1);
  yuv.canvas.render(*yuv.root);
  converted.canvas.render(*converted.root);
  EXPECT_TRUE(test::samePixels(yuv.canvas, converted.canvas));

  // Moving the box redraws the picture only where the box was and is, at
  // odd pixels; the rest of the canvas stays as drawn.
  for (Screen* screen : {&yuv, &converted}) {
    screen->box->setFrame({{20, 13}, {5, 3}});
    screen->composeChanges();
  }
  EXPECT_TRUE(test::samePixels(yuv.canvas, converted.canvas));
  EXPECT_TRUE(test::drawnAfresh(yuv.canvas, *yuv.root));

  // A new picture after a partial composition replaces it everywhere.
  const Picture next(1);
  yuv.player->deliverFrame(next.yuvFrame());
  yuv.composeChanges();
  EXPECT_TRUE(test::drawnAfresh(yuv.canvas, *yuv.root));
}

TEST(PlayerViewTest, AScaledPictureIsDrawnFromItsConvertedPixels) {
  const Picture picture;
  Screen yuv(picture.yuvFrame(), {0, 0}, 2);
  Screen converted(picture.pixelFrame(), {0, 0}, 2);
  yuv.canvas.render(*yuv.root);
  converted.canvas.render(*converted.root);
  EXPECT_TRUE(test::samePixels(yuv.canvas, converted.canvas));
}

TEST(PlayerViewTest, AnUnscaledPictureOffThePixelGridLandsOnTheNearestPixels) {
  const Picture picture;
  Screen onGrid(picture.yuvFrame(), {1, 3}, 1);
  onGrid.canvas.render(*onGrid.root);
  for (const Point at : {Point{0.5, 3.25}, Point{1.25, 2.5}}) {
    for (const auto& frame : {picture.yuvFrame(), picture.pixelFrame()}) {
      Screen offGrid(frame, at, 1);
      // Only the picture is compared: the box moves with its view.
      offGrid.box->setHidden(true);
      onGrid.box->setHidden(true);
      offGrid.canvas.render(*offGrid.root);
      onGrid.canvas.render(*onGrid.root);
      for (int y = 3; y < kHeight; ++y) {
        const auto* got = offGrid.canvas.pixels() + y * offGrid.canvas.stride() + 4;
        const auto* want = onGrid.canvas.pixels() + y * onGrid.canvas.stride() + 4;
        ASSERT_EQ(std::memcmp(got, want, (kWidth - 1) * 4), 0)
            << "row " << y << " of the picture at " << at.x << "," << at.y;
      }
    }
  }
}

}  // namespace
}  // namespace zivora::ui
