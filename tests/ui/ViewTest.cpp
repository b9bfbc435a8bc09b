#include <gtest/gtest.h>

#include "ui/Button.h"
#include "ui/Canvas.h"
#include "ui/View.h"

namespace zivora::ui {
namespace {

class ViewTest : public ::testing::Test {
 protected:
  ViewTest() {
    root_ = std::make_shared<View>(Rect{{0, 0}, {400, 300}});
    back_ = std::make_shared<View>(Rect{{0, 0}, {400, 300}});
    front_ = std::make_shared<Button>(Rect{{10, 10}, {60, 60}});
    root_->addSubview(back_);
    root_->addSubview(front_);
    back_->setTapHandler([this] { ++backTaps_; });
    front_->setAction([this] { ++frontTaps_; });
  }

  void render() { canvas_.render(*root_); }

  Canvas canvas_{{4, 4}, 1};
  std::shared_ptr<View> root_, back_;
  std::shared_ptr<Button> front_;
  int backTaps_ = 0, frontTaps_ = 0;
};

TEST_F(ViewTest, TheTopmostVisibleViewTakesTheTap) {
  EXPECT_TRUE(root_->tap({20, 20}));
  EXPECT_EQ(frontTaps_, 1);
  EXPECT_EQ(backTaps_, 0);
  root_->tap({200, 200});
  EXPECT_EQ(backTaps_, 1);
  // The right and bottom edges belong to the neighbour.
  root_->tap({70, 20});
  EXPECT_EQ(backTaps_, 2);

  // A view without interaction passes the tap to its superview.
  auto image = std::make_shared<View>(Rect{{0, 0}, {60, 60}});
  image->setUserInteractionEnabled(false);
  front_->addSubview(image);
  root_->tap({20, 20});
  EXPECT_EQ(frontTaps_, 2);

  // A translation moves where taps land.
  front_->setTranslation({0, 100});
  root_->tap({20, 20});
  EXPECT_EQ(frontTaps_, 2);
  root_->tap({20, 120});
  EXPECT_EQ(frontTaps_, 3);
}

TEST_F(ViewTest, HiddenAndNearlyTransparentViewsLetTapsThrough) {
  front_->setHidden(true);
  root_->tap({20, 20});
  EXPECT_EQ(frontTaps_, 0);
  front_->setHidden(false);
  front_->setAlpha(0.005);
  root_->tap({20, 20});
  EXPECT_EQ(frontTaps_, 0);
  // A barely visible full-screen button still takes taps.
  front_->setAlpha(0.05);
  root_->tap({20, 20});
  EXPECT_EQ(frontTaps_, 1);
  EXPECT_EQ(backTaps_, 2);
}

TEST_F(ViewTest, ChangesInsideAHiddenSubtreeStillReachTheRoot) {
  auto inner = std::make_shared<View>(Rect{{0, 0}, {5, 5}});
  front_->addSubview(inner);
  front_->setHidden(true);
  render();
  EXPECT_FALSE(root_->needsDisplay());
  inner->setBackgroundColor(Color::white());
  EXPECT_TRUE(root_->needsDisplay());
  render();
  // A change that leaves the value as it was asks for nothing.
  front_->setHidden(true);
  EXPECT_FALSE(root_->needsDisplay());
}

TEST_F(ViewTest, RemovingAViewDetachesItAndRedrawsTheParent) {
  render();
  std::weak_ptr<Button> weak = front_;
  front_->removeFromSuperview();
  EXPECT_EQ(front_->superview(), nullptr);
  EXPECT_EQ(root_->subviews().size(), 1u);
  EXPECT_TRUE(root_->needsDisplay());
  front_.reset();
  EXPECT_TRUE(weak.expired());
}

}  // namespace
}  // namespace zivora::ui
