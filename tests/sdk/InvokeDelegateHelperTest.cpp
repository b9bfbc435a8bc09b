// Host callbacks go through one dispatcher that records, forwards and shields.
#include <gtest/gtest.h>

#include "sdk/InvokeDelegateHelper.h"
#include "support/RecordingHost.h"
#include "support/ScopedContext.h"

namespace zivora {
namespace {

// Takes rewards, or throws from two callbacks as a buggy host might.
class RewardHost final : public ZivoraDelegate {
 public:
  explicit RewardHost(bool throws) : throws_(throws) {}
  void videoDidDismiss(const std::string&) override {
    if (throws_) throw std::runtime_error("host bug");
  }
  bool receiveMotivatedRewards(const std::vector<ZVMotivatedRewardInfo>& rewards) override {
    if (throws_) throw std::logic_error("host bug");
    received = rewards.size();
    return true;
  }
  std::size_t received = 0;

 private:
  bool throws_;
};

void fireEveryCallback(InvokeDelegateHelper& helper) {
  helper.videoDidCache("p");
  helper.videoDidFailToLoad("p", 3);
  helper.videoWindowWillDisplay("p");
  helper.videoWindowDidDisplay("p");
  helper.videoDidDismiss("p");
  helper.videoWindowWillClose("p");
  helper.videoWindowDidClose("p");
  helper.videoPostViewDidClick("p");
  helper.videoReceiveReward("p");
  helper.receiveMotivatedRewards({});
  helper.failedRequestMotivatedRewards(4);
}

TEST(InvokeDelegateHelper, RecordsEveryCallbackAndForwardsItWithItsArguments) {
  test::ScopedContext scope;
  InvokeDelegateHelper helper;
  fireEveryCallback(helper);
  EXPECT_EQ(
      scope.analytics().invokedDelegates(),
      (std::vector<std::string>{
          "videoDidCache", "videoDidFailToLoad", "videoWindowWillDisplay", "videoWindowDidDisplay",
          "videoDidDismiss", "videoWindowWillClose", "videoWindowDidClose", "videoPostViewDidClick",
          "videoReceiveReward", "receiveMotivatedRewards", "failedRequestMotivatedRewards"}));
  // Without a delegate, or with one that does not take them, rewards are refused.
  EXPECT_FALSE(helper.receiveMotivatedRewards({ZVMotivatedRewardInfo("r", "a", 5)}));
  auto host = std::make_shared<test::RecordingHost>();
  helper.setDelegate(host);
  fireEveryCallback(helper);
  EXPECT_EQ(host->calls,
            (std::vector<std::string>{
                "videoDidCache p", "videoDidFailToLoad p 3", "videoWindowWillDisplay p",
                "videoWindowDidDisplay p", "videoDidDismiss p", "videoWindowWillClose p",
                "videoWindowDidClose p", "videoPostViewDidClick p", "videoReceiveReward p"}));
  EXPECT_FALSE(helper.receiveMotivatedRewards({}));

  auto taker = std::make_shared<RewardHost>(false);
  helper.setDelegate(taker);
  EXPECT_TRUE(helper.receiveMotivatedRewards({ZVMotivatedRewardInfo("r1", "app", 10)}));
  EXPECT_EQ(taker->received, 1u);
  EXPECT_TRUE(scope.analytics().exceptions().empty());
}

TEST(InvokeDelegateHelper, HostExceptionsAreReportedAndSwallowed) {
  test::ScopedContext scope;
  InvokeDelegateHelper helper;
  helper.setDelegate(std::make_shared<RewardHost>(true));
  helper.videoDidDismiss("p");
  EXPECT_FALSE(helper.receiveMotivatedRewards({}));
  auto reported = scope.analytics().exceptions();
  ASSERT_EQ(reported.size(), 2u);
  EXPECT_EQ(reported[0].className, "InvokeDelegateHelper");
  EXPECT_EQ(reported[0].method, "videoDidDismiss");
  EXPECT_EQ(reported[0].reason, "host bug");
  EXPECT_EQ(reported[1].method, "receiveMotivatedRewards");
}

}  // namespace
}  // namespace zivora
