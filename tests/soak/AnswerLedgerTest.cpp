#include <gtest/gtest.h>

#include <fstream>

#include "AnswerLedger.h"
#include "support/TempDir.h"

namespace zivora::soak {
namespace {

TEST(AnswerLedgerTest, ReadsTheHostsStepsAndCallbacksInOrder) {
  test::TempDir directory;
  const auto file = directory.path() / "host.out";
  std::ofstream(file) << "[   0.001s] zivora-demo, SDK 0.1.0, headless\n"
                         "[   0.002s] cacheVideo short\n"
                         "[   0.300s]   sdk: Request Video Ad\n"
                         "[   1.200s] delegate: videoDidCache short\n"
                         "[   1.201s] showVideo short\n"
                         "[   9.000s] delegate: videoWindowWillClose short\n"
                         "[   9.300s] delegate: videoWindowDidClose short\n"
                         "[   9.301s] delegate: videoReceiveReward short\n";
  AnswerLedger ledger;
  ledger.readHostOutput(file, false);
  EXPECT_EQ(ledger.summary().requests, 2u);
  EXPECT_EQ(ledger.summary().answeredOnce, 2u);
  EXPECT_EQ(ledger.summary().answeredTwice + ledger.summary().neverAnswered, 0u);
}

// A failure answers whichever request of its placement waits; an answer with
// nothing waiting is a second answer; what stays open is never answered, or
// cut off when the soak killed the host.
TEST(AnswerLedgerTest, CountsSecondAnswersAndOpenRequests) {
  AnswerLedger ledger;
  ledger.noteLine("cacheVideo a");
  ledger.noteLine("delegate: videoDidFailToLoad a 3");
  ledger.noteLine("delegate: videoDidCache a");        // after the failure: twice
  ledger.noteLine("delegate: videoWindowDidClose b");  // nothing asked for b
  ledger.noteLine("cacheVideo c");
  ledger.noteLine("delegate: videoWindowDidClose c");  // not an answer to a cache
  ledger.endRun(false);
  ledger.noteLine("showVideo d");
  ledger.endRun(true);
  const auto summary = ledger.summary();
  EXPECT_EQ(summary.requests, 3u);
  EXPECT_EQ(summary.answeredOnce, 1u);
  EXPECT_EQ(summary.answeredTwice, 3u);
  EXPECT_EQ(summary.neverAnswered, 1u);
  EXPECT_EQ(summary.cutOff, 1u);
}

}  // namespace
}  // namespace zivora::soak
