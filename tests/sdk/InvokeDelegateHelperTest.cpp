// Host callbacks go through one dispatcher that records, forwards and shields.
#include <gtest/gtest.h>

#include "sdk/InvokeDelegateHelper.h"
#include "support/RecordingHost.h"
#include "support/ScopedContext.h"

namespace zivora {
namespace {

class Throws final : public ZivoraDelegate {
 public:
  void videoDidDismiss(const std::string&) override { throw std::runtime_error("host bug"); }
  bool receiveMotivatedRewards(const std::vector<ZVMotivatedRewardInfo>&) override {
    throw std::logic_error("host bug");
  }
};

class TakesRewards final : public ZivoraDelegate {
 public:
  bool receiveMotivatedRewards(const std::vector<ZVMotivatedRewardInfo>& rewards) override {
    received = rewards.size();
    return true;
  }
  std::size_t received = 0;
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

TEST(InvokeDelegateHelper, WithoutADelegateEveryCallbackIsStillRecorded) {
  test::ScopedContext scope;
  InvokeDelegateHelper helper;
  fireEveryCallback(helper);
  EXPECT_EQ(
      scope.analytics().invokedDelegates(),
      (std::vector<std::string>{
          "videoDidCache", "videoDidFailToLoad", "videoWindowWillDisplay", "videoWindowDidDisplay",
          "videoDidDismiss", "videoWindowWillClose", "videoWindowDidClose", "videoPostViewDidClick",
          "videoReceiveReward", "receiveMotivatedRewards", "failedRequestMotivatedRewards"}));
  EXPECT_FALSE(helper.receiveMotivatedRewards({ZVMotivatedRewardInfo("r", "a", 5)}));
  EXPECT_TRUE(scope.analytics().exceptions().empty());
}

TEST(InvokeDelegateHelper, ForwardsEachCallbackWithItsArguments) {
  test::ScopedContext scope;
  InvokeDelegateHelper helper;
  auto host = std::make_shared<test::RecordingHost>();
  helper.setDelegate(host);
  fireEveryCallback(helper);
  EXPECT_EQ(host->calls,
            (std::vector<std::string>{
                "videoDidCache p", "videoDidFailToLoad p 3", "videoWindowWillDisplay p",
                "videoWindowDidDisplay p", "videoDidDismiss p", "videoWindowWillClose p",
                "videoWindowDidClose p", "videoPostViewDidClick p", "videoReceiveReward p"}));
  // A host that does not take rewards refuses them.
  EXPECT_FALSE(helper.receiveMotivatedRewards({}));

  auto taker = std::make_shared<TakesRewards>();
  helper.setDelegate(taker);
  EXPECT_TRUE(helper.receiveMotivatedRewards({ZVMotivatedRewardInfo("r1", "app", 10)}));
  EXPECT_EQ(taker->received, 1u);
}

TEST(InvokeDelegateHelper, HostExceptionsAreReportedAndSwallowed) {
  test::ScopedContext scope;
  InvokeDelegateHelper helper;
  helper.setDelegate(std::make_shared<Throws>());
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
