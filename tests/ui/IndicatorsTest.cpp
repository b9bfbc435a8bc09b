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
  for (const auto& [time, text] :
       {std::pair{0.5f, "15"}, {14.5f, "1"}, {16.2f, "0"}, {17.5f, "-1"}}) {
    countdown.setCurrentTime(time);
    EXPECT_EQ(countdown.label()->text(), text) << "at " << time << " s";
  }
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

// The arc ends on whole degrees, truncated and capped at the full circle;
// it is computed in 32-bit floats, as the fields are declared: 47/360
// times 360 is 47 in floats, 46.99... in doubles.
TEST(RingTest, ArcEndIsTruncatedToWholeDegreesInFloats) {
  for (const auto& [progress, degrees] : {std::pair{0.999f, 359},
                                          {1.0f, 360},
                                          {0.5f, 180},
                                          {0.0f, 0},
                                          {3.5f, 360},
                                          {47.0f / 360.0f, 47}}) {
    EXPECT_EQ(ZVCircularProgressLayer::progressEndDegrees(progress), degrees) << progress;
  }
  EXPECT_DOUBLE_EQ(ZVCircularProgressLayer::degreeToRadiansFromTop(0), -std::numbers::pi / 2);
  EXPECT_DOUBLE_EQ(ZVCircularProgressLayer::degreeToRadiansFromTop(90), 0);
}

// The countdown's seconds too: 10 - 1e-8 is 10 as a float, so 11 is still
// shown; out-of-range values saturate.
TEST(RingTest, CountdownSecondsAreComputedInFloats) {
  EXPECT_EQ(ZVTimerCircularProgress::displayedSeconds(10, 1e-8f), 11);
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
