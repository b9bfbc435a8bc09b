#include <gtest/gtest.h>

#include <chrono>

#include "platform/media/MediaTime.h"

namespace zivora::media {
namespace {

TEST(MediaTimeTest, ConvertsBetweenSecondsAndNanoseconds) {
  EXPECT_EQ(MediaTime::fromSeconds(1.5).nanoseconds(), 1'500'000'000);
  EXPECT_DOUBLE_EQ(MediaTime::fromNanoseconds(250'000'000).seconds(), 0.25);
  EXPECT_EQ(MediaTime::fromSeconds(-0.5).nanoseconds(), -500'000'000);
  // Rounded, not truncated: 0.1 s is not exactly representable as a double.
  EXPECT_EQ(MediaTime::fromSeconds(0.1).nanoseconds(), 100'000'000);
  EXPECT_EQ(MediaTime::fromDuration(std::chrono::milliseconds(40)).nanoseconds(), 40'000'000);
  EXPECT_EQ(MediaTime::zero().seconds(), 0.0);
}

TEST(MediaTimeTest, OrdersTimesWithInvalidBelowEverything) {
  const auto one = MediaTime::fromSeconds(1);
  EXPECT_LT(MediaTime::zero(), one);
  EXPECT_EQ(MediaTime::fromNanoseconds(1'000'000'000), one);
  EXPECT_LT(MediaTime::invalid(), MediaTime::fromSeconds(-100));
  EXPECT_NE(MediaTime::invalid(), MediaTime::zero());
  EXPECT_EQ(MediaTime::invalid(), MediaTime());
}

TEST(MediaTimeTest, InvalidTimesStayInvalidAndReadAsZero) {
  const auto invalid = MediaTime::invalid();
  EXPECT_FALSE(invalid.isValid());
  EXPECT_EQ(invalid.seconds(), 0.0);
  EXPECT_FALSE((invalid + MediaTime::fromSeconds(1)).isValid());
  EXPECT_FALSE((MediaTime::fromSeconds(1) - invalid).isValid());
  EXPECT_EQ(MediaTime::fromSeconds(3) - MediaTime::fromSeconds(1), MediaTime::fromSeconds(2));
}

}  // namespace
}  // namespace zivora::media
