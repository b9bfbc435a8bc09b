// Redrawing only what changed: the damage a change leaves on a canvas, and
// compositions of that damage against a canvas drawn afresh.
#include <gtest/gtest.h>

#include "support/ReferenceImage.h"
#include "ui/Canvas.h"
#include "ui/Label.h"
#include "ui/View.h"
#include "ui/ZVTimerCircularProgress.h"

namespace zivora::ui {
namespace {

constexpr double kScale = 2;

class CompositionTest : public ::testing::Test {
 protected:
  CompositionTest() {
    root_->addSubview(box_);
    box_->setBackgroundColor(Color{0.9, 0.2, 0.1, 1});
  }

  // Draws the damage of the changes since the last composition.
  void composeChanges() { test::composeChanges(canvas_, *root_); }
  ::testing::AssertionResult asDrawnAfresh() { return test::drawnAfresh(canvas_, *root_); }

  std::shared_ptr<View> root_ = std::make_shared<View>(Rect{{0, 0}, {100, 80}});
  std::shared_ptr<View> box_ = std::make_shared<View>(Rect{{10, 10}, {10, 10}});
  Canvas canvas_{{100, 80}, kScale};
};

TEST_F(CompositionTest, DamageIsWhereAChangedViewWasAndWhereItIsNow) {
  canvas_.render(*root_);
  PixelRegion none;
  canvas_.collectDamage(*root_, none);
  EXPECT_TRUE(none.isEmpty());

  box_->setFrame({{50.25, 20}, {10, 10}});
  PixelRegion moved;
  canvas_.collectDamage(*root_, moved);
  EXPECT_TRUE(moved.contains({20, 20, 20, 20}));
  // A fractional edge takes the whole pixel it touches.
  EXPECT_TRUE(moved.contains({100, 40, 21, 20}));
  EXPECT_EQ(moved.rectangles().size(), 2u);
  EXPECT_FALSE(moved.intersects({0, 0, 20, 160}));

  canvas_.render(*root_);
  box_->setHidden(true);
  PixelRegion hidden;
  canvas_.collectDamage(*root_, hidden);
  const cairo_rectangle_int_t extents = hidden.extents();
  EXPECT_EQ(extents.x, 100);
  EXPECT_EQ(extents.width, 21);
}

TEST_F(CompositionTest, ChangesComposedOverOpaqueAndTranslucentBackdropsMatchAFullRedraw) {
  for (const Color backdrop : {Color{0.1, 0.2, 0.4, 1}, Color{0.1, 0.2, 0.4, 0.5}}) {
    root_->setBackgroundColor(backdrop);
    canvas_.render(*root_);
    box_->setFrame({{40.5, 30.5}, {12, 12}});
    composeChanges();
    EXPECT_TRUE(asDrawnAfresh());
    // Half-transparent over a half-transparent backdrop: clearing first
    // matters, blending twice would show.
    box_->setAlpha(0.5);
    box_->setCornerRadius(4);
    composeChanges();
    EXPECT_TRUE(asDrawnAfresh());
  }
}

TEST_F(CompositionTest, OutlinedTextReachingPastItsLabelIsRedrawnWhereItReached) {
  root_->setBackgroundColor(Color{0.1, 0.2, 0.4, 1});
  auto label = std::make_shared<Label>(Rect{{30, 30}, {20, 8}});
  label->setAlignment(Label::Alignment::Center);
  label->setText("88", {.font = Font::systemFont(24),
                        .foreground = Color::white(),
                        .stroke = Color::black(),
                        .strokeWidth = -12});
  root_->addSubview(label);
  canvas_.render(*root_);
  label->setText("1");
  composeChanges();
  EXPECT_TRUE(asDrawnAfresh());
  label->setFrame({{60, 50}, {20, 8}});
  composeChanges();
  EXPECT_TRUE(asDrawnAfresh());
}

// Rings and labels keep their painting as pixels between changes: a new
// value, or a move of their superview off the pixel grid, must paint them
// anew, exactly as views that never drew before.
TEST(KeptPaintingTest, FollowsNewValuesAndMovesOffThePixelGrid) {
  struct Scene {
    std::shared_ptr<View> root = std::make_shared<View>(Rect{{0, 0}, {100, 80}});
    std::shared_ptr<View> holder = std::make_shared<View>(Rect{{0, 0}, {100, 80}});
    std::shared_ptr<ZVTimerCircularProgress> countdown =
        std::make_shared<ZVTimerCircularProgress>(Rect{{20, 20}, {40, 40}});
    explicit Scene(float time, Point shift) {
      root->setBackgroundColor(Color{0.1, 0.2, 0.4, 1});
      root->addSubview(holder);
      holder->addSubview(countdown);
      holder->setTranslation(shift);
      countdown->setDuration(15);
      countdown->setCurrentTime(time);
    }
  };
  auto matchesNewScene = [](const Canvas& canvas, float time, Point shift) {
    Scene scene(time, shift);
    return test::drawnAfresh(canvas, *scene.root);
  };
  using test::composeChanges;

  Canvas canvas({100, 80}, kScale);
  Scene scene(2, {0, 0});
  canvas.render(*scene.root);
  scene.countdown->setCurrentTime(7.5f);
  composeChanges(canvas, *scene.root);
  EXPECT_TRUE(matchesNewScene(canvas, 7.5f, {0, 0}));
  scene.holder->setTranslation({0.25, 0.75});  // half pixels at this scale
  composeChanges(canvas, *scene.root);
  EXPECT_TRUE(matchesNewScene(canvas, 7.5f, {0.25, 0.75}));
  scene.holder->setTranslation({3.25, 1.75});  // whole pixels further
  composeChanges(canvas, *scene.root);
  EXPECT_TRUE(matchesNewScene(canvas, 7.5f, {3.25, 1.75}));
}

// A background is not painted where an opaque subview covers whole pixels;
// the subview's partly covered edge pixels still blend over it.
TEST_F(CompositionTest, ABackgroundSkippedUnderAnOpaqueSubviewLeavesNoSeam) {
  root_->setBackgroundColor(Color{0.2, 0.3, 0.9, 1});
  for (const Point at : {Point{10.25, 10.75}, Point{12, 9.5}}) {
    box_->setFrame({at, {30.5, 20}});
    canvas_.render(*root_);
    // The same pixels, painted the long way: the backdrop whole, then the
    // box over it.
    Canvas layered(canvas_.points(), canvas_.scale());
    box_->setHidden(true);
    layered.render(*root_);
    box_->setHidden(false);
    View box(box_->frame());
    box.setBackgroundColor(Color{0.9, 0.2, 0.1, 1});
    layered.draw(box);
    EXPECT_TRUE(test::samePixels(canvas_, layered)) << "at " << at.x << "," << at.y;
  }
}

}  // namespace
}  // namespace zivora::ui
