#include <gtest/gtest.h>

#include "RewardTally.h"

namespace zivora::soak {
namespace {

TEST(RewardTallyTest, SquaresRecordedRewardsAgainstDeliveriesAndIgnoresOtherLines) {
  RewardTally tally;
  tally.noteLine("[  1.000s]   sdk: [RewardLedger] Reward A of short recorded");
  tally.noteLine("[  2.000s]   sdk: [RewardLedger] Reward A of short delivered");
  // Killed after the callback, before the acknowledgement: A again.
  tally.noteLine("[  0.500s]   sdk: [RewardLedger] Reward A of short delivered again");
  tally.noteLine("sdk: [RewardLedger] Reward B of short recorded");
  tally.noteLine("sdk: [RewardLedger] Reward B of short delivered again");
  tally.noteLine("sdk: [RewardLedger] Reward C of short recorded");
  tally.noteOwed("C");
  tally.noteLine("sdk: [RewardLedger] Reward D of large recorded");
  // Other and malformed lines count for nothing.
  for (const char* line : {"sdk: [RewardLedger] Reward  recorded", "[RewardLedger] Reward",
                           "delegate: videoReceiveReward short",
                           "sdk: [RewardLedger] Reward E of short is not recorded; a crash"})
    tally.noteLine(line);
  const auto summary = tally.summary();
  EXPECT_EQ(summary.earned, 4u);
  EXPECT_EQ(summary.delivered, 2u);
  EXPECT_EQ(summary.redelivered, 2u);
  EXPECT_EQ(summary.duplicates, 1u);
  EXPECT_EQ(summary.stillOwed, 1u);
  EXPECT_EQ(summary.lost, 1u);
}

}  // namespace
}  // namespace zivora::soak
