#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "ads/RewardLedger.h"
#include "platform/dispatch/Runtime.h"
#include "platform/linux/KeyValueDatabase.h"
#include "sdk/InvokeDelegateHelper.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"
#include "zivora/ZivoraDelegate.h"

namespace zivora {
namespace {

// A host that only knows the callback without the id.
class OldHost : public ZivoraDelegate {
 public:
  void videoReceiveReward(const std::string& placement) override { rewards.push_back(placement); }
  std::vector<std::string> rewards;
};

class IdHost final : public OldHost {
 public:
  using OldHost::videoReceiveReward;
  void videoReceiveReward(const std::string& placement, const std::string& rewardId) override {
    rewards.push_back(placement + "/" + rewardId);
    if (throws) throw std::runtime_error("the host's own failure");
  }
  bool throws = false;
};

class RewardLedgerTest : public ::testing::Test {
 protected:
  // A ledger over the data root's file, as a fresh start would open it.
  std::shared_ptr<RewardLedger> start() {
    auto ledger = std::make_shared<RewardLedger>(root_.path() / RewardLedger::kFileName, *runtime_);
    ledger->open();
    return ledger;
  }

  RewardLedger::Deliver toHost() {
    auto dispatcher = std::make_shared<InvokeDelegateHelper>();
    dispatcher->setDelegate(host_);
    return RewardLedger::toHost(dispatcher);
  }

  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  test::TempDir root_;
  test::ScopedContext context_{HostOptions{.dataRoot = root_.path().string()},
                               RuntimeOptions{.runtime = runtime_}};
  std::shared_ptr<IdHost> host_ = std::make_shared<IdHost>();
};

TEST_F(RewardLedgerTest, RecordIsDurableBeforeAnythingElseAndClearedByTheCallbacksReturn) {
  auto ledger = start();
  std::size_t recordedBeforeWatched = 0;
  auto record = ledger->earn("level-1", "ad-9", [&] {
    // A ledger opened now (a crash at this moment) finds the record.
    recordedBeforeWatched = start()->unacknowledged().size();
  });
  ledger->deliver(record, toHost());
  runtime_->runUntilIdle();
  EXPECT_EQ(recordedBeforeWatched, 1u);
  EXPECT_FALSE(record.rewardId.empty());
  EXPECT_EQ(host_->rewards, std::vector<std::string>{"level-1/" + record.rewardId});
  EXPECT_TRUE(start()->unacknowledged().empty());
}

// Rewards never delivered (the host died) or delivered with no host delegate
// set come back at the next start, once per run, ahead of what is posted
// after them; a host that throws has still had its callback return.
TEST_F(RewardLedgerTest, UnacknowledgedRewardsComeBackAtTheNextStartOnceWithTheirIds) {
  auto earlier = start();
  auto first = earlier->earn("a", "ad-1", nullptr);
  runtime_->advanceBy(std::chrono::seconds(1));
  auto second = earlier->earn("b", "ad-2", nullptr);
  earlier->deliver(second, RewardLedger::toHost(std::make_shared<InvokeDelegateHelper>()));
  runtime_->runUntilIdle();

  auto next = start();
  const auto owed = next->unacknowledged();
  ASSERT_EQ(owed.size(), 2u);
  EXPECT_EQ(owed[0].placement, "a");
  EXPECT_EQ(owed[0].adId, "ad-1");
  host_->throws = true;
  bool laterTaskRan = false;
  next->redeliverPending(toHost());
  runtime_->mainQueue().async([&] { laterTaskRan = !host_->rewards.empty(); });
  next->redeliverPending(toHost());
  runtime_->runUntilIdle();
  EXPECT_TRUE(laterTaskRan) << "redeliveries come before what is posted after them";
  EXPECT_EQ(host_->rewards,
            (std::vector<std::string>{"a/" + first.rewardId, "b/" + second.rewardId}));
  EXPECT_TRUE(start()->unacknowledged().empty());
}

TEST_F(RewardLedgerTest, AnUnopenableLedgerStillDelivers) {
  // A directory where the database should be: nothing is recorded, the
  // reward still reaches the host.
  std::filesystem::create_directories(root_.path() / RewardLedger::kFileName);
  auto ledger = start();
  bool watched = false;
  ledger->deliver(ledger->earn("a", "ad-1", [&] { watched = true; }), toHost());
  runtime_->runUntilIdle();
  EXPECT_TRUE(watched);
  EXPECT_EQ(host_->rewards.size(), 1u);
  EXPECT_TRUE(ledger->unacknowledged().empty());
}

TEST_F(RewardLedgerTest, ARecordOfAnotherShapeIsStillOwedByItsId) {
  {
    auto database = platform::KeyValueDatabase::open(root_.path() / RewardLedger::kFileName);
    ASSERT_NE(database, nullptr);
    ASSERT_TRUE(database->write("rewards", "odd-1", nlohmann::json(42)));
    ASSERT_TRUE(database->write("rewards", "odd-2", {{"placement", 7}, {"earnedAt", "soon"}}));
  }
  auto ledger = start();
  ledger->redeliverPending(toHost());
  runtime_->runUntilIdle();
  EXPECT_EQ(host_->rewards, (std::vector<std::string>{"/odd-1", "/odd-2"}));
  EXPECT_TRUE(start()->unacknowledged().empty());
}

TEST(RewardCallbackTest, OldHostsHearTheRewardWithoutItsId) {
  OldHost host;
  ZivoraDelegate& asDelegate = host;
  asDelegate.videoReceiveReward("p", "id-1");
  EXPECT_EQ(host.rewards, std::vector<std::string>{"p"});
}

}  // namespace
}  // namespace zivora
