#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ads/MotivationRewardManager.h"
#include "sdk/ZVConfiguration.h"
#include "support/FakeHttpClient.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"
#include "zivora/ZivoraDelegate.h"

namespace zivora {
namespace {

using namespace std::chrono_literals;

class RewardDelegate final : public ZivoraDelegate {
 public:
  bool receiveMotivatedRewards(const std::vector<ZVMotivatedRewardInfo>& rewards) override {
    received.push_back(rewards);
    return accept;
  }
  void failedRequestMotivatedRewards(std::uint64_t error) override { failures.push_back(error); }

  bool accept = true;
  std::vector<std::vector<ZVMotivatedRewardInfo>> received;
  std::vector<std::uint64_t> failures;
};

class MotivationRewardManagerTest : public ::testing::Test {
 protected:
  MotivationRewardManagerTest() {
    ZVConfiguration::shared()->setAppId("app-1");
    manager_ = std::make_shared<MotivationRewardManager>(
        delegate_, [this](const std::vector<std::string>& ids) { removals_.push_back(ids); });
  }

  std::shared_ptr<test::VirtualRuntime> runtime_ = std::make_shared<test::VirtualRuntime>();
  test::TempDir root_;
  std::shared_ptr<test::FakeHttpClient> http_ = std::make_shared<test::FakeHttpClient>();
  test::ScopedContext context_{HostOptions{.dataRoot = root_.path().string()},
                               RuntimeOptions{.runtime = runtime_, .http = http_}};
  std::shared_ptr<RewardDelegate> delegate_ = std::make_shared<RewardDelegate>();
  std::vector<std::vector<std::string>> removals_;
  std::shared_ptr<MotivationRewardManager> manager_;
};

TEST_F(MotivationRewardManagerTest, RequestCarriesTheIdsOfAppInstallAndUser) {
  ZVConfiguration::shared()->setAppUserId("player-7");
  manager_->requestMotivatedRewards();
  runtime_->runUntilIdle();
  ASSERT_EQ(http_->requests().size(), 1u);
  const auto fields = http_->lastParams().at("getMotivatedRewards");
  EXPECT_EQ(fields.at("appId"), "app-1");
  EXPECT_EQ(fields.at("appUserId"), "player-7");
  EXPECT_EQ(fields.at("randomUID"), *ZVConfiguration::shared()->randomUID());
}

// A server error, or a reply of the wrong shape, fails the fetch at once with
// its code; a text that is not a number reads as 0, as the server's integer
// reader does.
TEST_F(MotivationRewardManagerTest, ErrorsAndWrongShapesFailWithoutRetry) {
  http_->enqueue(200, R"({"error":7})");
  http_->enqueue(200, R"({"rewards":"many"})");
  http_->enqueue(200, R"({"error":"bad"})");
  for (int fetch = 0; fetch < 3; ++fetch) manager_->requestMotivatedRewards();
  runtime_->advanceBy(10s);
  EXPECT_EQ(delegate_->failures, (std::vector<std::uint64_t>{7, 4, 0}));
  EXPECT_EQ(http_->requests().size(), 3u);
}

TEST_F(MotivationRewardManagerTest, FourTransportFailuresGiveUpWithThreeAfterAnotherSecond) {
  for (int i = 0; i < 4; ++i) http_->enqueueFailure("Connection refused");
  manager_->requestMotivatedRewards();
  runtime_->runUntilIdle();
  runtime_->advanceBy(3s);
  EXPECT_EQ(http_->requests().size(), 4u);
  EXPECT_TRUE(delegate_->failures.empty());
  runtime_->advanceBy(999ms);
  EXPECT_TRUE(delegate_->failures.empty());
  runtime_->advanceBy(1ms);
  EXPECT_EQ(delegate_->failures, std::vector<std::uint64_t>{3});
  runtime_->advanceBy(10s);
  EXPECT_EQ(http_->requests().size(), 4u);
  // The count starts again: the next fetch gets its own three retries.
  http_->enqueue(200, R"({"rewards":[]})");
  manager_->requestMotivatedRewards();
  runtime_->runUntilIdle();
  EXPECT_EQ(delegate_->received.size(), 1u);
}

TEST_F(MotivationRewardManagerTest, AnEmptyReplyIsRetriedLikeATransportFailure) {
  http_->enqueue(200, "not json");
  http_->enqueue(200, R"({})");
  manager_->requestMotivatedRewards();
  runtime_->advanceBy(1s);
  ASSERT_EQ(delegate_->received.size(), 1u);
  EXPECT_TRUE(delegate_->received[0].empty());
  EXPECT_TRUE(removals_.empty());
}

TEST_F(MotivationRewardManagerTest, AcceptedRewardsAreRemovedInOneRequest) {
  const char* reply =
      R"({"rewards":[{"rewardId":"r1","appName":"Tower","reward":"15"},{"rewardId":"r2","appName":"Kart","reward":5},{"appName":"Odd"}]})";
  http_->enqueue(200, reply);
  manager_->requestMotivatedRewards();
  runtime_->runUntilIdle();
  ASSERT_EQ(delegate_->received.size(), 1u);
  const auto& rewards = delegate_->received[0];
  ASSERT_EQ(rewards.size(), 3u);
  EXPECT_EQ(rewards[0].amountOfReward(), 15);
  EXPECT_EQ(rewards[1].appName(), "Kart");
  EXPECT_EQ(rewards[2].rewardId(), "");
  EXPECT_EQ(rewards[2].amountOfReward(), 0);
  // The reward without an identifier is not sent back.
  EXPECT_EQ(removals_, (std::vector<std::vector<std::string>>{{"r1", "r2"}}));

  delegate_->accept = false;
  http_->enqueue(200, reply);
  manager_->requestMotivatedRewards();
  runtime_->runUntilIdle();
  EXPECT_EQ(removals_.size(), 1u);
}

TEST_F(MotivationRewardManagerTest, RemovalDropsEmptyIdentifiers) {
  manager_->removeMotivatedRewards({"", "r9"});
  manager_->removeMotivatedRewards({"", ""});
  manager_->removeMotivatedRewards({});
  EXPECT_EQ(removals_, (std::vector<std::vector<std::string>>{{"r9"}}));
}

}  // namespace
}  // namespace zivora
