// Rewards earned from several threads while the main queue delivers them and
// the ledger queue commits and acknowledges them (ThreadSanitizer checks the
// sharing; the test checks that each reward arrives once and is cleared).
#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "ads/RewardLedger.h"
#include "platform/linux/ThreadRuntime.h"
#include "support/TempDir.h"

namespace zivora {
namespace {

TEST(RewardLedgerThreaded, RewardsFromSeveralThreadsArriveOnceAndAreAcknowledged) {
  test::TempDir root;
  const auto file = root.path() / RewardLedger::kFileName;
  constexpr int kThreads = 3, kRewards = 20;
  std::mutex mutex;
  std::multiset<std::string> heard;
  std::promise<void> allHeard;
  auto host = [&](const RewardRecord& record) {
    std::lock_guard lock(mutex);
    heard.insert(record.rewardId);
    if (heard.size() == kThreads * kRewards) allHeard.set_value();
    return true;
  };
  std::set<std::string> earned;
  {
    dispatch::ThreadRuntime runtime;
    auto ledger = std::make_shared<RewardLedger>(file, runtime);
    ledger->open();
    std::vector<std::thread> players;
    for (int thread = 0; thread < kThreads; ++thread) {
      players.emplace_back([&, thread] {
        for (int i = 0; i < kRewards; ++i) {
          auto record = ledger->earn("p" + std::to_string(thread), "ad", nullptr);
          ledger->deliver(record, host);
          std::lock_guard lock(mutex);
          earned.insert(record.rewardId);
        }
      });
    }
    for (auto& player : players) player.join();
    allHeard.get_future().wait();
    // The acknowledgements follow the deliveries on the ledger queue; a
    // commit queued from the main queue after the last one comes after them.
    std::promise<void> barrier;
    runtime.mainQueue().async([&] { ledger->earn("barrier", "", [&] { barrier.set_value(); }); });
    barrier.get_future().wait();
    const auto left = ledger->unacknowledged();
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left.front().placement, "barrier");
    runtime.shutdown();
  }
  EXPECT_EQ(earned.size(), static_cast<std::size_t>(kThreads * kRewards));
  EXPECT_EQ(std::set<std::string>(heard.begin(), heard.end()), earned);
  EXPECT_EQ(heard.size(), earned.size());
}

}  // namespace
}  // namespace zivora
