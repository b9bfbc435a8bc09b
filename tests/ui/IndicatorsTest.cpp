#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "support/ScopedContext.h"
#include "ui/Canvas.h"
#include "ui/ZVSkipButton.h"
#include "ui/ZVTimerCircularProgress.h"

namespace zivora::ui {
namespace {

constexpr Rect kControl{{0, 0}, {40, 40}};

TEST(SkipButtonTest, NegativeDurationForbidsSkipping) {
  ZVSkipButton skip(kControl);
  skip.setDuration(-1);
  EXPECT_TRUE(skip.isHidden());
  skip.setCurrentTime(5);
  EXPECT_TRUE(skip.isHidden());  // validate leaves a forbidden control alone
  EXPECT_EQ(skip.ring().progress(), 0);
}

TEST(SkipButtonTest, BecomesOpaqueAtTheSkipTimeAndReadyOnlyAfterIt) {
  ZVSkipButton skip(kControl);
  skip.setDuration(1);
  EXPECT_FALSE(skip.isHidden());
  EXPECT_DOUBLE_EQ(skip.alpha(), 0.5);
  skip.setCurrentTime(1);
  EXPECT_DOUBLE_EQ(skip.alpha(), 1.0);
  EXPECT_FALSE(skip.isReady());
  skip.setCurrentTime(2);
  EXPECT_TRUE(skip.isReady());
  EXPECT_FLOAT_EQ(skip.ring().progress(), 2);
}

TEST(SkipButtonTest, NegativeTimesAreStoredAsZero) {
  ZVSkipButton skip(kControl);
  skip.setCurrentTime(-3);
  EXPECT_EQ(skip.currentTime(), 0);
  ZVTimerCircularProgress countdown(kControl);
  countdown.setCurrentTime(-3);
  EXPECT_EQ(countdown.currentTime(), 0);
}

TEST(CountdownTest, ShowsTheCeilingOfTheRemainingTimeUnclamped) {
  ZVTimerCircularProgress countdown(kControl);
  countdown.setDuration(15);
  EXPECT_EQ(countdown.label()->text(), "16");
  countdown.setCurrentTime(0.5);
  EXPECT_EQ(countdown.label()->text(), "15");
  countdown.setCurrentTime(14.5);
  EXPECT_EQ(countdown.label()->text(), "1");
  countdown.setCurrentTime(16.2);
  EXPECT_EQ(countdown.label()->text(), "0");
  countdown.setCurrentTime(17.5);
  EXPECT_EQ(countdown.label()->text(), "-1");
  EXPECT_FLOAT_EQ(countdown.timer()->progress(), 17.5f / 15);
}

TEST(CountdownTest, RebuildsTheNumberOnlyWhenItChanges) {
  ZVTimerCircularProgress countdown(kControl);
  countdown.setDuration(15);
  const int before = countdown.label()->textRevision();
  for (int tick = 1; tick <= 20; ++tick) countdown.setCurrentTime(0.05f * tick);
  // 20 updates of one second's worth: the number changed once (16 → 15).
  EXPECT_EQ(countdown.label()->textRevision(), before + 1);
  EXPECT_EQ(countdown.label()->attributes().strokeWidth, countdown.font().size() / -6);
  EXPECT_FLOAT_EQ(countdown.font().size(), 0.48f * 40);
}

TEST(CountdownTest, ZeroAndNaNDurationsNeverConvertUndefinedValues) {
  test::ScopedContext context;
  ZVTimerCircularProgress countdown(kControl);
  countdown.setDuration(0);
  EXPECT_EQ(ZVCircularProgressLayer::progressEndDegrees(countdown.timer()->progress()), 360);
  countdown.setDuration(std::numeric_limits<float>::quiet_NaN());
  EXPECT_EQ(countdown.label()->text(), "0");
  EXPECT_EQ(ZVCircularProgressLayer::progressEndDegrees(countdown.timer()->progress()), 360);
  countdown.setDuration(1e30f);
  EXPECT_EQ(countdown.lastDisplayTime(), std::numeric_limits<std::int32_t>::max());
  EXPECT_TRUE(context.analytics().exceptions().empty());
}

TEST(RingTest, ArcEndIsTruncatedToWholeDegrees) {
  EXPECT_EQ(ZVCircularProgressLayer::progressEndDegrees(0.999f), 359);
  EXPECT_EQ(ZVCircularProgressLayer::progressEndDegrees(1.0f), 360);
  EXPECT_EQ(ZVCircularProgressLayer::progressEndDegrees(0.5f), 180);
  EXPECT_EQ(ZVCircularProgressLayer::progressEndDegrees(0), 0);
  EXPECT_EQ(ZVCircularProgressLayer::progressEndDegrees(3.5f), 360);
  EXPECT_DOUBLE_EQ(ZVCircularProgressLayer::degreeToRadiansFromTop(0), -std::numbers::pi / 2);
  EXPECT_DOUBLE_EQ(ZVCircularProgressLayer::degreeToRadiansFromTop(90), 0);
}

// The countdown and the ring compute in 32-bit floats, as their fields are
// declared; both cases land on the other side of a whole number in doubles.
TEST(RingTest, CountdownAndArcAreComputedInFloats) {
  // 10 - 1e-8 is 10 as a float: 11 is still shown.
  EXPECT_EQ(ZVTimerCircularProgress::displayedSeconds(10, 1e-8f), 11);
  // 47/360 times 360 is 47 in floats, 46.99... in doubles.
  EXPECT_EQ(ZVCircularProgressLayer::progressEndDegrees(47.0f / 360.0f), 47);
  EXPECT_EQ(ZVTimerCircularProgress::displayedSeconds(3e9f, 0), INT32_MAX);
  EXPECT_EQ(ZVTimerCircularProgress::displayedSeconds(-3e9f, 0), INT32_MIN);
  EXPECT_EQ(ZVTimerCircularProgress::displayedSeconds(-2.5f, 0), -1);
}

TEST(RingTest, ProgressAsksTheOwningViewForARedraw) {
  ZVCircularProgressView ring(kControl);
  Canvas(kControl.size, 1).render(ring);
  EXPECT_FALSE(ring.needsDisplay());
  ring.setProgress(0.25f);
  EXPECT_TRUE(ring.needsDisplay());
  EXPECT_FLOAT_EQ(ring.ring().progress(), 0.25f);
}

}  // namespace
}  // namespace zivora::ui
