#include <gtest/gtest.h>

#include "support/ReferenceImage.h"
#include "ui/Canvas.h"
#include "ui/ZVSkipButton.h"
#include "ui/ZVTimerCircularProgress.h"

namespace zivora::ui {
namespace {

using test::matchesReference;

// The controls sit on a dark blue backdrop, as over a video frame, at the
// scale of a high-density screen so the references show their detail.
constexpr Color kBackdrop{0.1, 0.2, 0.4, 1};
constexpr double kScale = 3;

struct Scene {
  std::shared_ptr<View> root = std::make_shared<View>(Rect{{0, 0}, {140, 60}});
  Scene() { root->setBackgroundColor(kBackdrop); }

  ::testing::AssertionResult matches(const std::string& name) {
    Canvas canvas(root->frame().size, kScale);
    canvas.render(*root);
    return matchesReference(canvas, name);
  }
};

TEST(IndicatorRenderingTest, CountdownRingFillsClockwiseFromTheTop) {
  Scene scene;
  auto early = std::make_shared<ZVTimerCircularProgress>(Rect{{10, 10}, {40, 40}});
  auto late = std::make_shared<ZVTimerCircularProgress>(Rect{{50, 10}, {40, 40}});
  auto done = std::make_shared<ZVTimerCircularProgress>(Rect{{90, 10}, {40, 40}});
  for (auto& countdown : {early, late, done}) {
    countdown->setDuration(15);
    scene.root->addSubview(countdown);
  }
  early->setCurrentTime(3.75);   // a quarter: 12 left
  late->setCurrentTime(11.25);   // three quarters: 4 left
  done->setCurrentTime(14.99f);  // 0.999 of the circle: 1 left
  EXPECT_TRUE(scene.matches("countdown"));
}

TEST(IndicatorRenderingTest, SkipControlIsHalfTransparentUntilReady) {
  Scene scene;
  auto waiting = std::make_shared<ZVSkipButton>(Rect{{10, 10}, {40, 40}});
  auto ready = std::make_shared<ZVSkipButton>(Rect{{50, 10}, {40, 40}});
  auto forbidden = std::make_shared<ZVSkipButton>(Rect{{90, 10}, {40, 40}});
  for (auto& skip : {waiting, ready, forbidden}) scene.root->addSubview(skip);
  waiting->setDuration(5);
  waiting->setCurrentTime(2);
  ready->setDuration(5);
  ready->setCurrentTime(6);
  forbidden->setDuration(-1);
  EXPECT_TRUE(scene.matches("skip"));
}

// The rims a ring keeps between ticks are those of its place on the pixel
// grid: a ring that ticked and then moved, by fractions of a pixel or by
// whole ones, draws what a ring made there draws.
TEST(IndicatorRenderingTest, ARingThatTickedAndMovedDrawsAsOneMadeThere) {
  Scene ticked;
  auto ring = std::make_shared<ZVTimerCircularProgress>(Rect{{10, 10}, {40, 40}});
  ring->setDuration(15);
  ticked.root->addSubview(ring);
  Canvas canvas(ticked.root->frame().size, kScale);
  for (const float time : {1.0f, 2.0f, 3.0f}) {
    ring->setCurrentTime(time);
    canvas.render(*ticked.root);
  }
  for (const Point at : {Point{30.4, 10.7}, Point{31, 12}}) {
    ring->setFrame({at, {40, 40}});
    ring->setCurrentTime(7.5f);
    canvas.render(*ticked.root);
    Scene fresh;
    auto made = std::make_shared<ZVTimerCircularProgress>(Rect{at, {40, 40}});
    made->setDuration(15);
    made->setCurrentTime(7.5f);
    fresh.root->addSubview(made);
    EXPECT_TRUE(test::drawnAfresh(canvas, *fresh.root)) << "at " << at.x << "," << at.y;
  }
}

}  // namespace
}  // namespace zivora::ui
